#include "platform/coreimage/ops/op_support.h"

#include <algorithm>

namespace brenvia::ci {
namespace {

// A saturation boost that shrinks as the pixel's own saturation grows and is damped on skin-like
// hues. The colour is clamped to [0.0001, 0.9999] for the maths; what lies outside is added back
// afterwards. A channel's excursion from the grey is measured against those same bounds, so a
// fully saturated colour has saturation exactly 1, where the boost vanishes. The boost polynomial
// in the saturation is p0 + p1·σ + p2·σ² + p3·σ³; it vanishes at σ = 1.
BV_FUSED_VECTOR_CLONES void vibranceSpan(float* sr, float* sg, float* sb, const float* sa, int n, float p0, float p1,
                                         float p2, float p3) {
  constexpr float lo = 0.0001f, hi = 0.9999f;
  for (int i = 0; i < n; ++i) {
    const float k = unpremultiplyFactor(sa[i]);
    const float r = sr[i] * k, g = sg[i] * k, b = sb[i] * k;
    const float vr = std::clamp(r, lo, hi), vg = std::clamp(g, lo, hi), vb = std::clamp(b, lo, hi);
    const float grey = (vr + vg + vb) * (1.0f / 3.0f);
    // Greys at the bounds have no excursion; the floor keeps 0/0 out of it.
    const float aboveScale = 1.0f / std::max(hi - grey, 1e-6f), belowScale = 1.0f / std::max(grey - lo, 1e-6f);
    const float er = std::max((vr - grey) * aboveScale, (grey - vr) * belowScale);
    const float eg = std::max((vg - grey) * aboveScale, (grey - vg) * belowScale);
    const float eb = std::max((vb - grey) * aboveScale, (grey - vb) * belowScale);
    const float sat = std::max(er, std::max(eg, eb));
    const float skin = std::clamp(4.0f * std::min(vr - vg, 2.0f * vg - vb) * (1.0f - er) / grey, 0.0f, 1.0f);
    const float boost = (p0 + sat * (p1 + sat * (p2 + sat * p3))) * (0.85f - 0.7f * skin);
    const float a = sa[i];
    sr[i] = (std::clamp(vr + (vr - grey) * boost, 0.0f, 1.0f) + (r - vr)) * a;
    sg[i] = (std::clamp(vg + (vg - grey) * boost, 0.0f, 1.0f) + (g - vg)) * a;
    sb[i] = (std::clamp(vb + (vb - grey) * boost, 0.0f, 1.0f) + (b - vb)) * a;
  }
}

class VibranceKernel final : public PointKernel {
 public:
  explicit VibranceKernel(double a)
      : p0_(float(3 * a)),
        p1_(float(-4.5 * a * a - 1.5 * a)),
        p2_(float(4.5 * a * a * a - 0.5 * a)),
        p3_(float(-4.5 * a * a * a + 4.5 * a * a - a)) {}
  std::string_view name() const override { return "CIVibrance"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override {
    vibranceSpan(s.r, s.g, s.b, s.a, s.n, p0_, p1_, p2_, p3_);
  }

 private:
  float p0_, p1_, p2_, p3_;
};

}  // namespace

void registerVibrance() {
  CIFilter::registerOperation("CIVibrance",
                              {"Vibrance",
                               builtinCategories({kCICategoryColorAdjustment}),
                               {imageInput(), numberInput("inputAmount", 0.0, -1.0, 1.0)}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                return CIImage::makePoint(std::make_shared<VibranceKernel>(f.number("inputAmount")),
                                                          {input}, input->extent());
                              });
}

}  // namespace brenvia::ci
