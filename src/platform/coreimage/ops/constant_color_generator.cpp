#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerConstantColorGenerator() {
  CIFilter::registerOperation(
      "CIConstantColorGenerator",
      {"Constant Color", builtinCategories({kCICategoryGenerator}), {colorInput("inputColor", CIColor(1, 0, 0, 1))}},
      [](const CIFilter& f) -> CIImageRef { return CIImage::imageWithColor(f.color("inputColor")); });
}

}  // namespace brenvia::ci
