#include "platform/coreimage/ops/blend_mode_kernel.h"

namespace brenvia::ci {
namespace {

template <class Blend, bool Separable = true>
void registerBuiltinBlendMode(std::string_view name, std::string displayName) {
  registerBlendMode<Blend, Separable>(name, std::move(displayName), builtinCategories({kCICategoryCompositeOperation}));
}

}  // namespace

void registerBlendModes() {
  registerBuiltinBlendMode<blend::Multiply>("CIMultiplyBlendMode", "Multiply Blend Mode");
  registerBuiltinBlendMode<blend::Screen>("CIScreenBlendMode", "Screen Blend Mode");
  registerBuiltinBlendMode<blend::Overlay>("CIOverlayBlendMode", "Overlay Blend Mode");
  registerBuiltinBlendMode<blend::Darken>("CIDarkenBlendMode", "Darken Blend Mode");
  registerBuiltinBlendMode<blend::Lighten>("CILightenBlendMode", "Lighten Blend Mode");
  registerBuiltinBlendMode<blend::ColorDodge>("CIColorDodgeBlendMode", "Color Dodge Blend Mode");
  registerBuiltinBlendMode<blend::ColorBurn>("CIColorBurnBlendMode", "Color Burn Blend Mode");
  registerBuiltinBlendMode<blend::SoftLight>("CISoftLightBlendMode", "Soft Light Blend Mode");
  registerBuiltinBlendMode<blend::HardLight>("CIHardLightBlendMode", "Hard Light Blend Mode");
  registerBuiltinBlendMode<blend::Difference>("CIDifferenceBlendMode", "Difference Blend Mode");
  registerBuiltinBlendMode<blend::Exclusion>("CIExclusionBlendMode", "Exclusion Blend Mode");
  registerBuiltinBlendMode<blend::Hue, false>("CIHueBlendMode", "Hue Blend Mode");
  registerBuiltinBlendMode<blend::Saturation, false>("CISaturationBlendMode", "Saturation Blend Mode");
  registerBuiltinBlendMode<blend::Color, false>("CIColorBlendMode", "Color Blend Mode");
  registerBuiltinBlendMode<blend::Luminosity, false>("CILuminosityBlendMode", "Luminosity Blend Mode");
  registerBuiltinBlendMode<blend::PinLight>("CIPinLightBlendMode", "Pin Light Blend Mode");
  registerBuiltinBlendMode<blend::LinearBurn>("CILinearBurnBlendMode", "Linear Burn Blend Mode");
  registerBuiltinBlendMode<blend::LinearDodge>("CILinearDodgeBlendMode", "Linear Dodge Blend Mode");
  registerBuiltinBlendMode<blend::Subtract>("CISubtractBlendMode", "Subtract Blend Mode");
  registerBuiltinBlendMode<blend::Divide>("CIDivideBlendMode", "Divide Blend Mode");
}

}  // namespace brenvia::ci
