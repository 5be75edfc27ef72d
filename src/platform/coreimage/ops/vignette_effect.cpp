#include "platform/coreimage/ops/op_support.h"

#include <algorithm>
#include <cmath>

namespace brenvia::ci {
namespace {

// The shape of the vignette: the circle's centre, its radius, the falloff scale (0 for a hard
// edge), the strength and the direction.
struct Vignette {
  double cx, cy;
  float inner, scale, strength;
  bool lighten;
};

BV_VECTOR_CLONES void vignetteSpan(Span& s, Vignette v) {
  alignas(64) float weight[kSpan];
  const float dy = float(double(s.y) + 0.5 - v.cy), x0 = float(double(s.x) + 0.5 - v.cx);
  for (int i = 0; i < s.n; ++i) {
    float dx = x0 + float(i);
    float d = std::sqrt(dx * dx + dy * dy);
    float t;
    if (v.scale > 0) {
      t = std::clamp((d - v.inner) * v.scale, 0.0f, 1.0f);
      t = t * t * (3.0f - 2.0f * t);
    } else {
      t = d < v.inner ? 0.0f : 1.0f;
    }
    weight[i] = v.strength * t;
  }
  const float white = v.lighten ? 1.0f : 0.0f;
  for (int i = 0; i < s.n; ++i) {
    float w = weight[i], keep = 1.0f - w, toward = white * w * s.a[i];
    s.r[i] = s.r[i] * keep + toward;
    s.g[i] = s.g[i] * keep + toward;
    s.b[i] = s.b[i] * keep + toward;
  }
}

// Darkens (positive intensity) or lightens (negative) towards the outside of a circle: the
// weight t rises smoothly from 0 at the radius to 1 at radius·(1 + 2·falloff). Premultiplied
// pixels are moved towards black or towards white of their own alpha.
class VignetteKernel final : public PointKernel {
 public:
  VignetteKernel(CGPoint center, double radius, double intensity, double falloff)
      : v_{center.x,
           center.y,
           float(radius),
           falloff > 0 && radius > 0 ? float(1 / (2 * radius * falloff)) : 0.0f,
           float(std::abs(intensity)),
           intensity < 0} {}
  std::string_view name() const override { return "CIVignetteEffect"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { vignetteSpan(s, v_); }

 private:
  Vignette v_;
};

}  // namespace

void registerVignetteEffect() {
  CIFilter::registerOperation(
      "CIVignetteEffect",
      {"Vignette Effect",
       builtinCategories({kCICategoryColorEffect}),
       {imageInput(), vectorInput("inputCenter", {150, 150}), numberInput("inputRadius", 150.0, 0.0),
        numberInput("inputIntensity", 1.0, -1.0, 1.0), numberInput("inputFalloff", 0.5, 0.0, 1.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        auto kernel = std::make_shared<VignetteKernel>(
            f.vector("inputCenter").CGPointValue(), std::max(0.0, f.number("inputRadius")), f.number("inputIntensity"),
            std::max(0.0, f.number("inputFalloff")));
        return CIImage::makePoint(std::move(kernel), {input}, input->extent());
      });
}

}  // namespace brenvia::ci
