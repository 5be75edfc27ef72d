#include "platform/coreimage/engine/fast_math.h"
#include "platform/coreimage/ops/op_support.h"

#include <algorithm>
#include <cmath>

namespace brenvia::ci {
namespace {

// The tone curves: a luma offset that lifts (or, for negative amounts, deepens) the shadows and
// pulls the highlights down, applied to the pixel as the gain 1 + offset / base so that hue and
// detail survive. The curves see the base clamped to [0, 1], so neutral amounts are the identity
// for every value, extended range included.
class ToneCurve {
 public:
  ToneCurve(double shadowAmount, double highlightAmount)
      : shadowSign_(float(shadowAmount > 0   ? 1
                          : shadowAmount < 0 ? -1
                                             : 0)),
        shadowPower_(float(1 / (1 + std::abs(shadowAmount)))),
        highlightPower_(float(1 / (2 - highlightAmount))),
        highlights_(highlightAmount != 1) {}

  static bool isNeutral(double shadowAmount, double highlightAmount) {
    return shadowAmount == 0 && highlightAmount == 1;
  }

  bool shadows() const { return shadowSign_ != 0; }
  bool highlights() const { return highlights_; }

  // The gain for a curve whose shadows() and highlights() are Shadows and Highlights: fixed at
  // compile time, they leave the span loops without branches, so that they vectorise.
  template <bool Shadows, bool Highlights>
  float gain(float base) const {
    const float b = std::clamp(base, 0.0f, 1.0f);
    float offset = 0;
    if constexpr (Shadows) {
      float p = fast::signedPow(b, shadowPower_);
      offset += shadowSign_ * std::clamp(p - 0.76f * p * p - b, 0.0f, 1.0f);
    }
    if constexpr (Highlights) {
      float p = fast::signedPow(1 - b, highlightPower_);
      offset += std::clamp(1 - (p - 0.8f * p * p) - b, -1.0f, 0.0f);
    }
    return 1 + offset / std::max(base, 1e-4f);
  }

 private:
  float shadowSign_, shadowPower_, highlightPower_;
  bool highlights_;
};

// Applies the curve's gain to the span; the base is the pixel's own luma without `base`.
template <bool Shadows, bool Highlights>
BV_VECTOR_CLONES void toneSpan(Span& s, const float* base, ToneCurve curve) {
  if (!base) {
    for (int i = 0; i < s.n; ++i) {
      float g = curve.gain<Shadows, Highlights>(unpremultipliedLuma(s, i));
      s.r[i] *= g, s.g[i] *= g, s.b[i] *= g;
    }
    return;
  }
  for (int i = 0; i < s.n; ++i) {
    float g = curve.gain<Shadows, Highlights>(base[i]);
    s.r[i] *= g, s.g[i] *= g, s.b[i] *= g;
  }
}

void applyTone(Span& s, const float* base, const ToneCurve& curve) {
  if (curve.shadows()) {
    curve.highlights() ? toneSpan<true, true>(s, base, curve) : toneSpan<true, false>(s, base, curve);
  } else {
    curve.highlights() ? toneSpan<false, true>(s, base, curve) : toneSpan<false, false>(s, base, curve);
  }
}

// Radius 0: the base is the pixel's own luma.
class PointToneKernel final : public PointKernel {
 public:
  explicit PointToneKernel(ToneCurve curve) : curve_(curve) {}
  std::string_view name() const override { return "CIHighlightShadowAdjust"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { applyTone(s, nullptr, curve_); }

 private:
  ToneCurve curve_;
};

// The base comes from the second input, the blurred luma plane.
class BlurredToneKernel final : public PointKernel {
 public:
  explicit BlurredToneKernel(ToneCurve curve) : curve_(curve) {}
  std::string_view name() const override { return "CIHighlightShadowAdjust"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    applyTone(s, others[0]->r, curve_);
  }

 private:
  ToneCurve curve_;
};

}  // namespace

void registerHighlightShadowAdjust() {
  CIFilter::registerOperation(
      "CIHighlightShadowAdjust",
      {"Highlight and Shadow Adjust",
       builtinCategories({kCICategoryColorAdjustment}),
       {imageInput(), numberInput("inputRadius", 0.0, 0.0), numberInput("inputShadowAmount", 0.0, -1.0, 1.0),
        numberInput("inputHighlightAmount", 1.0, 0.0, 1.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const double radius = f.number("inputRadius"), shadow = f.number("inputShadowAmount"),
                     highlight = f.number("inputHighlightAmount");
        const ToneCurve curve(shadow, highlight);
        // Neutral amounts give gain 1 whatever the base, so no blur is needed then.
        if (!(radius > 0) || ToneCurve::isNeutral(shadow, highlight))
          return CIImage::makePoint(std::make_shared<PointToneKernel>(curve), {input}, input->extent());
        // The luma plane is clamped before blurring so the base does not darken towards the edges.
        CIImageRef base = lumaPlane(input)->imageByClampingToExtent()->imageByApplyingFilter("CIGaussianBlur",
                                                                                             {{"inputRadius", radius}});
        if (!base) return nullptr;
        return CIImage::makePoint(std::make_shared<BlurredToneKernel>(curve), {input, base}, input->extent());
      });
}

}  // namespace brenvia::ci
