#include "catalogue/selective_color_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {

const BVParameterTable<BVSelectiveColorSettings>& BVSelectiveColorFilter::parameterTable() {
  using S = BVSelectiveColorSettings;
  constexpr BVParameterRange weight{0, 2};
  static const BVParameterTable<S> table{
      {kBVFilterRedAdjustmentKey, &S::red, "weight of reds", weight},
      {kBVFilterGreenAdjustmentKey, &S::green, "weight of greens", weight},
      {kBVFilterBlueAdjustmentKey, &S::blue, "weight of blues", weight},
      {kBVFilterYellowAdjustmentKey, &S::yellow, "weight of yellows (red and green)", weight},
      {kBVFilterOrangeAdjustmentKey, &S::orange, "weight of oranges (red, half green)", weight},
      {kBVFilterPurpleAdjustmentKey, &S::purple, "weight of purples (half red, blue)", weight},
  };
  return table;
}

CIFilterArray BVSelectiveColorFilter::CIFiltersForSize(CGSize) {
  const auto& [red, green, blue, yellow, orange, purple] = settings();
  const double r = (red + yellow + orange + purple * 0.5) / 3.5;
  const double g = (yellow + green + orange * 0.5) / 2.5;
  const double b = (purple + blue) * 0.5;
  return {CIFilter::filterWithName("CIColorMatrix", {{"inputRVector", CIVector{r, 0, 0, 0}},
                                                     {"inputGVector", CIVector{0, g, 0, 0}},
                                                     {"inputBVector", CIVector{0, 0, b, 0}}})};
}

void BVSelectiveColorFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVSelectiveColorFilter] Selective Color is not supported with "
      "CGContext. Use the Core Image chain or "
      "implement vImage.");
}

}  // namespace brenvia
