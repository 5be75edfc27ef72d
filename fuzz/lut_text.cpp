// libFuzzer target: lookup-table text and .cube files read into colour cubes.

#include "curves/lut_text.h"
#include "platform/foundation/log.h"

#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    brenvia::BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  // Table files are tried on a fraction of inputs only: a short one logs 65,536 warnings, which
  // would leave little time for .cube files.
  if (size > 0 && data[0] == '0') {
    if (brenvia::BVLUTTextCube(text, 0.5f, "fuzz.txt")->size() != 16 * 32 * 32 * 32) std::abort();
  } else if (auto lut = brenvia::BVCubeLUTRead(text, "fuzz.cube")) {
    size_t n = lut->dimension;
    if (n < 2 || n > brenvia::kBVCubeLUTMaxDimension || lut->cube->size() != 16 * n * n * n) std::abort();
    if (brenvia::BVCubeLUTUnitCube(*lut, 0.5f)->size() != lut->cube->size()) std::abort();
  }
  return 0;
}
