// libFuzzer target: the TIFF decoder (strips and tiles, 8 and 16 bits, palettes, ICC profiles).

#include "fuzz_check.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Inputs without a TIFF header would go to another decoder; keep them out of the corpus.
  if (size < 8 || (std::memcmp(data, "II*\0", 4) != 0 && std::memcmp(data, "MM\0*", 4) != 0)) return -1;
  brenvia::imageio::fuzzing::decodeAndCheck(data, size, true);
  return 0;
}
