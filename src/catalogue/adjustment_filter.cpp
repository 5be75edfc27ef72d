#include "catalogue/adjustment_filter.h"

#include "operators/threshold_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <cstdio>

namespace brenvia {
namespace {

void readNumber(const Value& parameters, std::string_view key, double& field) {
  const Value* member = BVMember(parameters, key);
  if (auto number = member ? BVNumber(*member) : std::nullopt) field = *number;
}

}  // namespace

BVAdjustmentFilter::BVAdjustmentFilter() { BVRegisterThresholdCIFilter(); }

void BVAdjustmentFilter::initWithParameters(const Value& parameters) {
  saturation_ = defaultSaturationAdjustment();
  useVibrance_ = false;
  brightness_ = defaultBrightnessAdjustment();
  contrast_ = defaultContrastAdjustment();
  hue_ = defaultHueAdjustment();
  gamma_ = defaultGammaAdjustment();
  exposure_ = defaultExposureAdjustment();
  highlights_ = defaultHighlightsAdjustment();
  shadows_ = defaultShadowsAdjustment();
  temperature_ = defaultTemperatureAdjustment();
  tint_ = defaultTintAdjustment();
  thresholdMin_ = defaultThresholdMinAdjustment();
  thresholdMax_ = defaultThresholdMaxAdjustment();
  BVFilter::initWithParameters(parameters);
}

void BVAdjustmentFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  readNumber(parameters, kBVFilterAdjustmentSaturationKey, saturation_);
  useVibrance_ = boolFor(parameters, kBVFilterAdjustmentUseVibranceForSaturationKey).value_or(false);
  readNumber(parameters, kBVFilterAdjustmentBrightnessKey, brightness_);
  readNumber(parameters, kBVFilterAdjustmentContrastKey, contrast_);
  readNumber(parameters, kBVFilterAdjustmentHueKey, hue_);
  readNumber(parameters, kBVFilterAdjustmentGammaKey, gamma_);
  readNumber(parameters, kBVFilterAdjustmentExposureKey, exposure_);
  readNumber(parameters, kBVFilterAdjustmentHighlightsKey, highlights_);
  readNumber(parameters, kBVFilterAdjustmentShadowsKey, shadows_);
  readNumber(parameters, kBVFilterAdjustmentTemperatureKey, temperature_);
  readNumber(parameters, kBVFilterAdjustmentTintKey, tint_);
  readNumber(parameters, kBVFilterAdjustmentThresholdMinKey, thresholdMin_);
  readNumber(parameters, kBVFilterAdjustmentThresholdMaxKey, thresholdMax_);
}

CIFilterArray BVAdjustmentFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  CIFilterArray chain;
  const bool saturationChanged = saturation_ != defaultSaturationAdjustment();

  if (saturationChanged && useVibrance_) {
    auto vibrance = CIFilter::filterWithName("CIVibrance");
    vibrance->setValue(saturation_, "inputAmount");
    chain.push_back(vibrance);
  }

  auto controls = CIFilter::filterWithName("CIColorControls");
  bool controlsUsed = false;
  if (saturationChanged && !useVibrance_) {
    controls->setValue(saturation_, "inputSaturation");
    controlsUsed = true;
  }
  if (brightness_ != defaultBrightnessAdjustment()) {
    controls->setValue(brightness_, "inputBrightness");
    controlsUsed = true;
  }
  if (contrast_ != defaultContrastAdjustment()) {
    controls->setValue(contrast_, "inputContrast");
    controlsUsed = true;
  }
  if (controlsUsed) chain.push_back(controls);

  if (hue_ != defaultHueAdjustment()) {
    chain.push_back(CIFilter::filterWithName("CIHueAdjust", {{"inputAngle", hue_}}));
  }
  if (gamma_ != defaultGammaAdjustment()) {
    chain.push_back(CIFilter::filterWithName("CIGammaAdjust", {{"inputPower", gamma_}}));
  }
  if (exposure_ != defaultExposureAdjustment()) {
    chain.push_back(CIFilter::filterWithName("CIExposureAdjust", {{"inputEV", exposure_}}));
  }
  if (highlights_ != defaultHighlightsAdjustment() || shadows_ != defaultShadowsAdjustment()) {
    chain.push_back(CIFilter::filterWithName("CIHighlightShadowAdjust",
                                             {{"inputHighlightAmount", highlights_}, {"inputShadowAmount", shadows_}}));
  }
  if (temperature_ != defaultTemperatureAdjustment() || tint_ != defaultTintAdjustment()) {
    chain.push_back(
        CIFilter::filterWithName("CITemperatureAndTint", {{"inputNeutral", CIVector::vectorWithXY(temperature_, tint_)}}));
  }
  if (thresholdMin_ != defaultThresholdMinAdjustment() || thresholdMax_ != defaultThresholdMaxAdjustment()) {
    chain.push_back(CIFilter::filterWithName(kBVThresholdCIFilterName,
                                             {{"inputEdge0", thresholdMin_}, {"inputEdge1", thresholdMax_}}));
  }
  return chain;
}

void BVAdjustmentFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVAdjustmentFilter] Color adjustment is not supported with CGContext. Use the Core Image chain or implement "
      "vImage for color adjustment.");
}

BVFilterRef BVAdjustmentFilter::copy() const {
  BVFilterRef made = BVFilter::copy();
  auto& copied = static_cast<BVAdjustmentFilter&>(*made);
  copied.setSaturationAdjustment(saturationAdjustment());
  copied.setUseVibranceForSaturation(useVibranceForSaturation());
  copied.setBrightnessAdjustment(brightnessAdjustment());
  copied.setContrastAdjustment(contrastAdjustment());
  copied.setHueAdjustment(hueAdjustment());
  copied.setGammaAdjustment(gammaAdjustment());
  copied.setExposureAdjustment(exposureAdjustment());
  copied.setHighlightsAdjustment(highlightsAdjustment());
  copied.setShadowsAdjustment(shadowsAdjustment());
  copied.setTemperatureAdjustment(temperatureAdjustment());
  copied.setTintAdjustment(tintAdjustment());
  copied.setThresholdMinAdjustment(thresholdMinAdjustment());
  copied.setThresholdMaxAdjustment(thresholdMaxAdjustment());
  return made;
}

std::string BVAdjustmentFilter::description() const {
  char buffer[512];
  std::snprintf(buffer, sizeof buffer,
                "<%s: %p; Saturation: %f, Vibrancy: %s, Brightness: %f, Contrast: %f, Hue: %f, Gamma: %f, Exposure: %f, "
                "Temperature: %f, Tint: %f, Highlights: %f, Shadows: %f>",
                className().c_str(), static_cast<const void*>(this), saturation_, useVibrance_ ? "true" : "false",
                brightness_, contrast_, hue_, gamma_, exposure_, temperature_, tint_, highlights_, shadows_);
  return buffer;
}

}  // namespace brenvia
