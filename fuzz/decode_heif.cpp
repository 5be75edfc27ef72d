// libFuzzer target: the HEIF decoder (boxes, grids, colour profiles, EXIF, depth and matte maps).

#include "fuzz_check.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Inputs without an "ftyp" box first would go to another decoder; keep them out of the corpus.
  if (size < 12 || std::memcmp(data + 4, "ftyp", 4) != 0) return -1;
  brenvia::imageio::fuzzing::decodeAndCheck(data, size, true);
  brenvia::imageio::fuzzing::decodeAuxiliaryAndCheck(data, size);
  return 0;
}
