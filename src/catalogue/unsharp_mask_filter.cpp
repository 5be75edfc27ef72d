#include "catalogue/unsharp_mask_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <algorithm>

namespace brenvia {

const BVParameterTable<BVUnsharpMaskSettings>& BVUnsharpMaskFilter::parameterTable() {
  using S = BVUnsharpMaskSettings;
  static const BVParameterTable<S> table{
      {kBVFilterRadiusKey, &S::radius, "blur radius in pixels of a picture whose short side is 640",
       BVParameterRange{0, 100}, BVParameterRead::Always},
      {kBVFilterIntensityKey, &S::intensity, "strength of the sharpening", BVParameterRange{0, 2},
       BVParameterRead::Always},
  };
  return table;
}

CIFilterArray BVUnsharpMaskFilter::CIFiltersForSize(CGSize size) {
  const double radius = std::min(size.width, size.height) / 640.0 * settings().radius;
  return {
      CIFilter::filterWithName("CIUnsharpMask", {{"inputRadius", radius}, {"inputIntensity", settings().intensity}})};
}

void BVUnsharpMaskFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVUnsharpMaskFilter] Unsharp mask is not supported with CGContext. "
      "Use the Core Image chain or implement "
      "vImage.");
}

}  // namespace brenvia
