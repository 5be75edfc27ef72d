// libFuzzer target: ACV curve files read, and their curves turned into tables and a colour cube.

#include "curves/acv_object.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto bytes = std::make_shared<const std::vector<uint8_t>>(data, data + size);
  auto object = brenvia::CACVObject::initWithData(bytes);
  if (!object) return 0;
  for (const auto& curve : {object->RGBCurve(), object->redCurve(), object->greenCurve(), object->blueCurve()}) {
    if (!curve) std::abort();
    (void)curve->LUT();
  }
  if (object->threeDimensionalLUT(8, 0.5f)->size() != 16 * 8 * 8 * 8) std::abort();
  return 0;
}
