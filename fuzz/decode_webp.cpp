// libFuzzer target: the WebP decoder (lossy, lossless, alpha, ICCP and EXIF chunks).

#include "fuzz_check.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Inputs without the RIFF/WEBP signature would go to another decoder; keep them out of the corpus.
  if (size < 12 || std::memcmp(data, "RIFF", 4) != 0 || std::memcmp(data + 8, "WEBP", 4) != 0) return -1;
  brenvia::imageio::fuzzing::decodeAndCheck(data, size, true);
  return 0;
}
