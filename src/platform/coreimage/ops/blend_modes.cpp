#include "platform/coreimage/ops/blend_math.h"
#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

// The blend equation with a separable or a non-separable blend function; input 0 is the source
// (the overlay), input 1 the backdrop.
template <class Blend, bool Separable>
class BlendModeKernel final : public PointKernel {
 public:
  explicit BlendModeKernel(std::string name) : name_(std::move(name)) {}
  std::string_view name() const override { return name_; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    if constexpr (Separable) {
      blend::blendSeparable<Blend>(s, *others[0]);
    } else {
      blend::blendNonSeparable<Blend>(s, *others[0]);
    }
  }

 private:
  std::string name_;
};

template <class Blend, bool Separable = true>
void registerBlendMode(std::string_view name, std::string displayName) {
  auto kernel = std::make_shared<BlendModeKernel<Blend, Separable>>(std::string(name));
  CIFilter::registerOperation(
      std::string(name),
      {std::move(displayName),
       builtinCategories({kCICategoryCompositeOperation}),
       {imageInput(), imageInput("inputBackgroundImage")}},
      [kernel](const CIFilter& f) -> CIImageRef {
        CIImageRef source = f.image("inputImage"), backdrop = f.image("inputBackgroundImage");
        if (!source || !backdrop) return nullptr;
        return CIImage::makePoint(kernel, {source, backdrop}, CGRectUnion(source->extent(), backdrop->extent()));
      });
}

}  // namespace

void registerBlendModes() {
  registerBlendMode<blend::Multiply>("CIMultiplyBlendMode", "Multiply Blend Mode");
  registerBlendMode<blend::Screen>("CIScreenBlendMode", "Screen Blend Mode");
  registerBlendMode<blend::Overlay>("CIOverlayBlendMode", "Overlay Blend Mode");
  registerBlendMode<blend::Darken>("CIDarkenBlendMode", "Darken Blend Mode");
  registerBlendMode<blend::Lighten>("CILightenBlendMode", "Lighten Blend Mode");
  registerBlendMode<blend::ColorDodge>("CIColorDodgeBlendMode", "Color Dodge Blend Mode");
  registerBlendMode<blend::ColorBurn>("CIColorBurnBlendMode", "Color Burn Blend Mode");
  registerBlendMode<blend::SoftLight>("CISoftLightBlendMode", "Soft Light Blend Mode");
  registerBlendMode<blend::HardLight>("CIHardLightBlendMode", "Hard Light Blend Mode");
  registerBlendMode<blend::Difference>("CIDifferenceBlendMode", "Difference Blend Mode");
  registerBlendMode<blend::Exclusion>("CIExclusionBlendMode", "Exclusion Blend Mode");
  registerBlendMode<blend::Hue, false>("CIHueBlendMode", "Hue Blend Mode");
  registerBlendMode<blend::Saturation, false>("CISaturationBlendMode", "Saturation Blend Mode");
  registerBlendMode<blend::Color, false>("CIColorBlendMode", "Color Blend Mode");
  registerBlendMode<blend::Luminosity, false>("CILuminosityBlendMode", "Luminosity Blend Mode");
  registerBlendMode<blend::PinLight>("CIPinLightBlendMode", "Pin Light Blend Mode");
  registerBlendMode<blend::LinearBurn>("CILinearBurnBlendMode", "Linear Burn Blend Mode");
  registerBlendMode<blend::LinearDodge>("CILinearDodgeBlendMode", "Linear Dodge Blend Mode");
  registerBlendMode<blend::Subtract>("CISubtractBlendMode", "Subtract Blend Mode");
  registerBlendMode<blend::Divide>("CIDivideBlendMode", "Divide Blend Mode");
}

}  // namespace brenvia::ci
