#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

// The image moved by an affine map and resampled once; the engine folds consecutive transforms
// and area-averages strong reductions.
void registerAffineTransform() {
  CIFilter::registerOperation(
      "CIAffineTransform",
      {"Affine Transform", builtinCategories({kCICategoryGeometryAdjustment}),
       {imageInput(), transformInput("inputTransform")}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return input->imageByApplyingTransform(f.affineTransform("inputTransform"));
      });
}

}  // namespace brenvia::ci
