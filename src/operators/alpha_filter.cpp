#include "operators/alpha_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/foundation/once.h"

namespace brenvia {

CIImageRef BVAlphaCIFilterImageWithAlpha(double alpha, const CIImageRef& image) {
  if (!image) return nullptr;
  double a = double(float(alpha));
  return image->imageByApplyingFilter("CIColorMatrix", {{"inputAVector", CIVector{0, 0, 0, a}}});
}

void BVRegisterAlphaCIFilter() {
  static BVOnce once;
  once([] {
    CIFilter::registerOperation(
        std::string(kBVAlphaCIFilterName),
        {"Alpha",
         {std::string(kCICategoryColorAdjustment), std::string(kCICategoryVideo), std::string(kCICategoryStillImage)},
         {ci::imageInput(), ci::numberInput("inputAlpha", 1.0)},
         CIOperationRole::Opacity},
        [](const CIFilter& f) { return BVAlphaCIFilterImageWithAlpha(f.number("inputAlpha"), f.image("inputImage")); });
  });
}

}  // namespace brenvia
