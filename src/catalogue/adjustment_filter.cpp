#include "catalogue/adjustment_filter.h"

#include "operators/threshold_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {

const BVParameterTable<BVAdjustmentSettings>& BVAdjustmentFilter::parameterTable() {
  using S = BVAdjustmentSettings;
  static const BVParameterTable<S> table{
      {kBVFilterAdjustmentSaturationKey, &S::saturation, "saturation multiplier (1 keeps it)", BVParameterRange{0, 2}},
      {kBVFilterAdjustmentUseVibranceForSaturationKey, &S::useVibrance,
       "saturation as vibrance: muted colours gain more than vivid ones"},
      {kBVFilterAdjustmentBrightnessKey, &S::brightness, "added to every component", BVParameterRange{-1, 1}},
      {kBVFilterAdjustmentContrastKey, &S::contrast, "contrast about mid grey (1 keeps it)", BVParameterRange{0, 2}},
      {kBVFilterAdjustmentHueKey, &S::hue, "hue rotation in radians", BVParameterRange{-3.1416, 3.1416}},
      {kBVFilterAdjustmentGammaKey, &S::gamma, "gamma power; 0.75 leaves the step out", BVParameterRange{0.25, 4}},
      {kBVFilterAdjustmentExposureKey, &S::exposure, "exposure in stops", BVParameterRange{-4, 4}},
      {kBVFilterAdjustmentHighlightsKey, &S::highlights, "highlight amount (1 keeps them)", BVParameterRange{0, 1}},
      {kBVFilterAdjustmentShadowsKey, &S::shadows, "shadow lift (0 keeps them)", BVParameterRange{-1, 1}},
      {kBVFilterAdjustmentTemperatureKey, &S::temperature, "neutral colour temperature in kelvin",
       BVParameterRange{2000, 12000}},
      {kBVFilterAdjustmentTintKey, &S::tint, "green-magenta tint of the neutral", BVParameterRange{-150, 150}},
      {kBVFilterAdjustmentThresholdMinKey, &S::thresholdMin, "luminance below which the picture turns black",
       BVParameterRange{0, 1}},
      {kBVFilterAdjustmentThresholdMaxKey, &S::thresholdMax, "luminance above which the picture turns white",
       BVParameterRange{0, 1}},
  };
  return table;
}

CIFilterArray BVAdjustmentFilter::CIFiltersForSize(CGSize) {
  static const BVAdjustmentSettings neutral;
  const BVAdjustmentSettings& s = settings();
  CIFilterArray chain;
  const bool saturationChanged = s.saturation != neutral.saturation;

  if (saturationChanged && s.useVibrance) {
    auto vibrance = CIFilter::filterWithName("CIVibrance");
    vibrance->setValue(s.saturation, "inputAmount");
    chain.push_back(vibrance);
  }

  auto controls = CIFilter::filterWithName("CIColorControls");
  bool controlsUsed = false;
  if (saturationChanged && !s.useVibrance) {
    controls->setValue(s.saturation, "inputSaturation");
    controlsUsed = true;
  }
  if (s.brightness != neutral.brightness) {
    controls->setValue(s.brightness, "inputBrightness");
    controlsUsed = true;
  }
  if (s.contrast != neutral.contrast) {
    controls->setValue(s.contrast, "inputContrast");
    controlsUsed = true;
  }
  if (controlsUsed) chain.push_back(controls);

  if (s.hue != neutral.hue) {
    chain.push_back(CIFilter::filterWithName("CIHueAdjust", {{"inputAngle", s.hue}}));
  }
  if (s.gamma != neutral.gamma) {
    chain.push_back(CIFilter::filterWithName("CIGammaAdjust", {{"inputPower", s.gamma}}));
  }
  if (s.exposure != neutral.exposure) {
    chain.push_back(CIFilter::filterWithName("CIExposureAdjust", {{"inputEV", s.exposure}}));
  }
  if (s.highlights != neutral.highlights || s.shadows != neutral.shadows) {
    chain.push_back(CIFilter::filterWithName(
        "CIHighlightShadowAdjust", {{"inputHighlightAmount", s.highlights}, {"inputShadowAmount", s.shadows}}));
  }
  if (s.temperature != neutral.temperature || s.tint != neutral.tint) {
    chain.push_back(CIFilter::filterWithName("CITemperatureAndTint",
                                             {{"inputNeutral", CIVector::vectorWithXY(s.temperature, s.tint)}}));
  }
  if (s.thresholdMin != neutral.thresholdMin || s.thresholdMax != neutral.thresholdMax) {
    chain.push_back(CIFilter::filterWithName(kBVThresholdCIFilterName,
                                             {{"inputEdge0", s.thresholdMin}, {"inputEdge1", s.thresholdMax}}));
  }
  return chain;
}

void BVAdjustmentFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVAdjustmentFilter] Color adjustment is not supported with "
      "CGContext. Use the Core Image chain or implement "
      "vImage for color adjustment.");
}

}  // namespace brenvia
