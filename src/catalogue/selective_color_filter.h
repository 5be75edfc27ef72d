#pragma once

#include "filter/filter_of.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterRedAdjustmentKey = "redAdjustment";
inline constexpr std::string_view kBVFilterGreenAdjustmentKey = "greenAdjustment";
inline constexpr std::string_view kBVFilterBlueAdjustmentKey = "blueAdjustment";
inline constexpr std::string_view kBVFilterYellowAdjustmentKey = "yellowAdjustment";
inline constexpr std::string_view kBVFilterOrangeAdjustmentKey = "orangeAdjustment";
inline constexpr std::string_view kBVFilterPurpleAdjustmentKey = "purpleAdjustment";

struct BVSelectiveColorSettings {
  double red = 1, green = 1, blue = 1, yellow = 1, orange = 1, purple = 1;
};

// Six colour weights folded into one scale per channel: a mixed colour counts towards each
// primary it contains (yellow fully in red and green, orange fully in red and half in green,
// purple half in red and fully in blue). All six at 1 leave the picture as it is. This scales
// whole channels; it does not pick out hues.
class BVSelectiveColorFilter : public BVFilterOf<BVSelectiveColorFilter, BVFilter, BVSelectiveColorSettings> {
 public:
  static constexpr std::string_view kClassName = "BVSelectiveColorFilter";
  static const BVParameterTable<BVSelectiveColorSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
