#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

// Extends the edge pixels of the image to infinity; with a transform other than the identity the
// clamped image is then transformed.
void registerAffineClamp() {
  CIFilter::registerOperation(
      "CIAffineClamp",
      {"Affine Clamp", builtinCategories({kCICategoryGeometryAdjustment}),
       {imageInput(), transformInput("inputTransform")}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return input->imageByClampingToExtent()->imageByApplyingTransform(f.affineTransform("inputTransform"));
      });
}

}  // namespace brenvia::ci
