#pragma once

#include "filter/filter.h"

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

// The general photographic controls as a short chain of colour operations; each control at its
// default value adds no operation.
class BVAdjustmentFilter : public BVFilter {
 public:
  BVAdjustmentFilter();

  static double defaultSaturationAdjustment() { return 1.0; }
  static double defaultBrightnessAdjustment() { return 0.0; }
  static double defaultContrastAdjustment() { return 1.0; }
  static double defaultHueAdjustment() { return 0.0; }
  // The value at which the gamma step is left out (not the neutral power).
  static double defaultGammaAdjustment() { return 0.75; }
  static double defaultExposureAdjustment() { return 0.0; }
  static double defaultHighlightsAdjustment() { return 1.0; }
  static double defaultShadowsAdjustment() { return 0.0; }
  static double defaultTemperatureAdjustment() { return 6500.0; }
  static double defaultTintAdjustment() { return 0.0; }
  static double defaultThresholdMinAdjustment() { return 0.0; }
  static double defaultThresholdMaxAdjustment() { return 1.0; }

  using BVFilter::initWithParameters;
  // Starts every field at its class default, then reads the dictionary.
  void initWithParameters(const Value& parameters) override;
  // Changes only the fields whose key is present; `useVibrance` is read every time.
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVAdjustmentFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double saturationAdjustment() const { return saturation_; }
  void setSaturationAdjustment(double v) { saturation_ = v; }
  bool useVibranceForSaturation() const { return useVibrance_; }
  void setUseVibranceForSaturation(bool v) { useVibrance_ = v; }
  double brightnessAdjustment() const { return brightness_; }
  void setBrightnessAdjustment(double v) { brightness_ = v; }
  double contrastAdjustment() const { return contrast_; }
  void setContrastAdjustment(double v) { contrast_ = v; }
  double hueAdjustment() const { return hue_; }
  void setHueAdjustment(double v) { hue_ = v; }
  double gammaAdjustment() const { return gamma_; }
  void setGammaAdjustment(double v) { gamma_ = v; }
  double exposureAdjustment() const { return exposure_; }
  void setExposureAdjustment(double v) { exposure_ = v; }
  double highlightsAdjustment() const { return highlights_; }
  void setHighlightsAdjustment(double v) { highlights_ = v; }
  double shadowsAdjustment() const { return shadows_; }
  void setShadowsAdjustment(double v) { shadows_ = v; }
  double temperatureAdjustment() const { return temperature_; }
  void setTemperatureAdjustment(double v) { temperature_ = v; }
  double tintAdjustment() const { return tint_; }
  void setTintAdjustment(double v) { tint_ = v; }
  double thresholdMinAdjustment() const { return thresholdMin_; }
  void setThresholdMinAdjustment(double v) { thresholdMin_ = v; }
  double thresholdMaxAdjustment() const { return thresholdMax_; }
  void setThresholdMaxAdjustment(double v) { thresholdMax_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVAdjustmentFilter>(); }

 private:
  double saturation_ = defaultSaturationAdjustment();
  bool useVibrance_ = false;
  double brightness_ = defaultBrightnessAdjustment();
  double contrast_ = defaultContrastAdjustment();
  double hue_ = defaultHueAdjustment();
  double gamma_ = defaultGammaAdjustment();
  double exposure_ = defaultExposureAdjustment();
  double highlights_ = defaultHighlightsAdjustment();
  double shadows_ = defaultShadowsAdjustment();
  double temperature_ = defaultTemperatureAdjustment();
  double tint_ = defaultTintAdjustment();
  double thresholdMin_ = defaultThresholdMinAdjustment();
  double thresholdMax_ = defaultThresholdMaxAdjustment();
};

}  // namespace brenvia
