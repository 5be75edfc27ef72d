#include "platform/coreimage/ci_color.h"
#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

// The ramp at t0 + i·dt, clamped to [0, 1], for pixel i. Two plain loops (t, then the mix) so that
// both vectorise.
BV_VECTOR_CLONES void linearRampSpan(Span& s, std::array<float, 4> from, std::array<float, 4> to, double t0,
                                     double dt) {
  alignas(64) float t[kSpan];
  for (int i = 0; i < s.n; ++i) t[i] = std::clamp(float(t0 + double(i) * dt), 0.0f, 1.0f);
  mixSpan(s, from, to, t);
}

// t = clamp(((p − p0)·d) / (d·d), 0, 1) with d = p1 − p0 (t = 0 when p0 = p1);
// out = mix(Pm(C0), Pm(C1), t), flat beyond both ends.
class LinearGradientKernel final : public PointKernel {
 public:
  LinearGradientKernel(CGPoint p0, CGPoint p1, CIColor c0, CIColor c1)
      : p0_(p0), d_{p1.x - p0.x, p1.y - p0.y}, c0_(std::move(c0)), c1_(std::move(c1)) {}
  std::string_view name() const override { return "CILinearGradient"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv& env) const override {
    const std::array<float, 4> from = env.pixel(c0_), to = env.pixel(c1_);
    // Along a row t is affine in x: t0 at the first pixel centre, dt per pixel.
    double dd = d_.x * d_.x + d_.y * d_.y, t0 = 0, dt = 0;
    if (dd > 0) {
      t0 = ((double(s.x) + 0.5 - p0_.x) * d_.x + (double(s.y) + 0.5 - p0_.y) * d_.y) / dd;
      dt = d_.x / dd;
    }
    linearRampSpan(s, from, to, t0, dt);
  }

 private:
  CGPoint p0_, d_;
  CIColor c0_, c1_;
};

}  // namespace

void registerLinearGradient() {
  CIFilter::registerOperation(
      "CILinearGradient",
      {"Linear Gradient",
       builtinCategories({kCICategoryGradient}),
       {vectorInput("inputPoint0", {0, 0}), vectorInput("inputPoint1", {200, 200}),
        colorInput("inputColor0", CIColor(1, 1, 1, 1)), colorInput("inputColor1", CIColor(0, 0, 0, 1))}},
      [](const CIFilter& f) -> CIImageRef {
        auto kernel = std::make_shared<LinearGradientKernel>(f.vector("inputPoint0").CGPointValue(),
                                                             f.vector("inputPoint1").CGPointValue(),
                                                             f.color("inputColor0"), f.color("inputColor1"));
        return CIImage::makePoint(std::move(kernel), {}, CGRectInfinite);
      });
}

}  // namespace brenvia::ci
