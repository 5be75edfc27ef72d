#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

// Keeps the pixels whose centres lie in the rectangle; the default rectangle is the whole plane.
void registerCrop() {
  CIFilter::registerOperation(
      "CICrop",
      {"Crop", builtinCategories({kCICategoryGeometryAdjustment}),
       {imageInput(), vectorInput("inputRectangle", CIVector::vectorWithCGRect(CGRectInfinite))}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return input->imageByCroppingToRect(f.vector("inputRectangle").CGRectValue());
      });
}

}  // namespace brenvia::ci
