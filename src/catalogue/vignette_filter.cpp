#include "catalogue/vignette_filter.h"

#include "filter/processing.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <algorithm>

namespace brenvia {

const BVParameterTable<BVVignetteSettings>& BVVignetteFilter::parameterTable() {
  using S = BVVignetteSettings;
  static const BVParameterTable<S> table{
      {kBVFilterIntensityKey, &S::intensity, "darkening at the corners", BVParameterRange{-1, 1},
       BVParameterRead::WhenPresent, BVParameterKind::Double},
      {kBVFilterFocusKey, &S::focus, "radius of the untouched circle as a share of the short side",
       BVParameterRange{0, 1}, BVParameterRead::WhenPresent, BVParameterKind::Double},
  };
  return table;
}

CIFilterArray BVVignetteFilter::CIFiltersForSize(CGSize size) {
  std::shared_ptr<BVProcessing> running = processor();
  const CGRect canvas = running ? running->processingRect() : CGRectMake(0, 0, size.width, size.height);
  const CIVector center = CIVector::vectorWithXY(CGRectGetMidX(canvas), CGRectGetMidY(canvas));
  return {CIFilter::filterWithName("CIVignetteEffect",
                                   {{"inputIntensity", settings().intensity},
                                    {"inputCenter", center},
                                    {"inputRadius", std::min(size.width, size.height) * settings().focus}})};
}

void BVVignetteFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVVignetteFilter] Vignette filter is not supported with CGContext. "
      "Use the Core Image chain or implement via "
      "gradients.");
}

}  // namespace brenvia
