#include "platform/coreimage/ops/op_support.h"

#include <algorithm>
#include <cmath>

namespace brenvia::ci {
namespace {

// Darkens (positive intensity) or lightens (negative) towards the outside of a circle: the
// weight t rises smoothly from 0 at the radius to 1 at radius·(1 + 2·falloff). Premultiplied
// pixels are moved towards black or towards white of their own alpha.
class VignetteKernel final : public PointKernel {
 public:
  VignetteKernel(CGPoint center, double radius, double intensity, double falloff)
      : cx_(center.x),
        cy_(center.y),
        inner_(float(radius)),
        scale_(falloff > 0 && radius > 0 ? float(1 / (2 * radius * falloff)) : 0.0f),
        strength_(float(std::abs(intensity))),
        lighten_(intensity < 0) {}
  std::string_view name() const override { return "CIVignetteEffect"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override {
    alignas(64) float weight[kSpan];
    const float dy = float(double(s.y) + 0.5 - cy_), x0 = float(double(s.x) + 0.5 - cx_);
    for (int i = 0; i < s.n; ++i) {
      float dx = x0 + float(i);
      float d = std::sqrt(dx * dx + dy * dy);
      float t;
      if (scale_ > 0) {
        t = std::clamp((d - inner_) * scale_, 0.0f, 1.0f);
        t = t * t * (3.0f - 2.0f * t);
      } else {
        t = d < inner_ ? 0.0f : 1.0f;
      }
      weight[i] = strength_ * t;
    }
    const float white = lighten_ ? 1.0f : 0.0f;
    for (int i = 0; i < s.n; ++i) {
      float w = weight[i], keep = 1.0f - w, toward = white * w * s.a[i];
      s.r[i] = s.r[i] * keep + toward;
      s.g[i] = s.g[i] * keep + toward;
      s.b[i] = s.b[i] * keep + toward;
    }
  }

 private:
  double cx_, cy_;
  float inner_, scale_, strength_;
  bool lighten_;
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
