#pragma once

#include "filter/filter_of.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterAdjustmentSaturationKey = "saturation";
inline constexpr std::string_view kBVFilterAdjustmentUseVibranceForSaturationKey = "useVibrance";
inline constexpr std::string_view kBVFilterAdjustmentBrightnessKey = "brightness";
inline constexpr std::string_view kBVFilterAdjustmentContrastKey = "contrast";
inline constexpr std::string_view kBVFilterAdjustmentHueKey = "hue";
inline constexpr std::string_view kBVFilterAdjustmentGammaKey = "gamma";
inline constexpr std::string_view kBVFilterAdjustmentExposureKey = "exposure";
inline constexpr std::string_view kBVFilterAdjustmentHighlightsKey = "highlights";
inline constexpr std::string_view kBVFilterAdjustmentShadowsKey = "shadows";
inline constexpr std::string_view kBVFilterAdjustmentTemperatureKey = "temperature";
inline constexpr std::string_view kBVFilterAdjustmentTintKey = "tint";
inline constexpr std::string_view kBVFilterAdjustmentThresholdMinKey = "thresholdMin";
inline constexpr std::string_view kBVFilterAdjustmentThresholdMaxKey = "thresholdMax";

// Each control at its default adds no operation.
struct BVAdjustmentSettings {
  double saturation = 1.0;
  bool useVibrance = false;
  double brightness = 0.0;
  double contrast = 1.0;
  double hue = 0.0;
  double gamma = 0.75;  // the value at which the gamma step is left out (not the
                        // neutral power)
  double exposure = 0.0;
  double highlights = 1.0;
  double shadows = 0.0;
  double temperature = 6500.0;
  double tint = 0.0;
  double thresholdMin = 0.0;
  double thresholdMax = 1.0;
};

// The general photographic controls as a short chain of colour operations.
class BVAdjustmentFilter : public BVFilterOf<BVAdjustmentFilter, BVFilter, BVAdjustmentSettings> {
 public:
  static constexpr std::string_view kClassName = "BVAdjustmentFilter";
  static const BVParameterTable<BVAdjustmentSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
