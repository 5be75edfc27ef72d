#include "platform/coreimage/ci_color.h"
#include "platform/coreimage/ops/op_support.h"

#include <cmath>

namespace brenvia::ci {
namespace {

// The ramp over the distance ρ from the centre, which lies (dx0, dy) from the first pixel centre:
// t = clamp((ρ − r0)·scale, 0, 1), or a step at r0 when `step` is set.
BV_VECTOR_CLONES void radialRampSpan(Span& s, std::array<float, 4> from, std::array<float, 4> to, double dx0, double dy,
                                     double r0, double scale, bool step) {
  alignas(64) float t[kSpan];
  for (int i = 0; i < s.n; ++i) {
    double dx = dx0 + double(i), rho = std::sqrt(dx * dx + dy * dy);
    t[i] = step ? (rho < r0 ? 0.0f : 1.0f) : std::clamp(float((rho - r0) * scale), 0.0f, 1.0f);
  }
  mixSpan(s, from, to, t);
}

// ρ = |p − center|; t runs from 0 at radius r0 to 1 at radius r1 (a hard step at r0 when they are
// equal); out = mix(Pm(C0), Pm(C1), t).
class RadialGradientKernel final : public PointKernel {
 public:
  RadialGradientKernel(CGPoint center, double r0, double r1, CIColor c0, CIColor c1)
      : center_(center), r0_(r0), r1_(r1), c0_(std::move(c0)), c1_(std::move(c1)) {}
  std::string_view name() const override { return "CIRadialGradient"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv& env) const override {
    const std::array<float, 4> from = env.pixel(c0_), to = env.pixel(c1_);
    const double dy = double(s.y) + 0.5 - center_.y, dx0 = double(s.x) + 0.5 - center_.x;
    const bool step = r1_ == r0_;
    const double scale = step ? 0.0 : 1.0 / (r1_ - r0_);
    radialRampSpan(s, from, to, dx0, dy, r0_, scale, step);
  }

 private:
  CGPoint center_;
  double r0_, r1_;
  CIColor c0_, c1_;
};

}  // namespace

void registerRadialGradient() {
  CIFilter::registerOperation("CIRadialGradient",
                              {"Radial Gradient",
                               builtinCategories({kCICategoryGradient}),
                               {vectorInput("inputCenter", {150, 150}), numberInput("inputRadius0", 5.0, 0.0),
                                numberInput("inputRadius1", 100.0, 0.0), colorInput("inputColor0", CIColor(1, 1, 1, 1)),
                                colorInput("inputColor1", CIColor(0, 0, 0, 1))}},
                              [](const CIFilter& f) -> CIImageRef {
                                // Negative radii are below the documented minimum and read as 0.
                                auto kernel = std::make_shared<RadialGradientKernel>(
                                    f.vector("inputCenter").CGPointValue(), std::max(0.0, f.number("inputRadius0")),
                                    std::max(0.0, f.number("inputRadius1")), f.color("inputColor0"),
                                    f.color("inputColor1"));
                                return CIImage::makePoint(std::move(kernel), {}, CGRectInfinite);
                              });
}

}  // namespace brenvia::ci
