// libFuzzer target: the JPEG decoder (headers, EXIF, ICC profiles, scaling, the DC-only 1/8 reader, CMYK).

#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Inputs without the JPEG signature would go to another decoder; keep them out of the corpus.
  if (size < 3 || data[0] != 0xff || data[1] != 0xd8 || data[2] != 0xff) return -1;
  brenvia::imageio::fuzzing::decodeAndCheck(data, size, false);
  return 0;
}
