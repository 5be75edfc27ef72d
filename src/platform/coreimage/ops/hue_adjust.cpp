#include "platform/coreimage/ops/op_support.h"

#include <cmath>

namespace brenvia::ci {
namespace {

// A 3 × 3 map of premultiplied rgb: m holds rows of four, the fourth column unused.
BV_VECTOR_CLONES void rotateSpan(Span& s, std::array<float, 12> m) {
  for (int i = 0; i < s.n; ++i) {
    float r = s.r[i], g = s.g[i], b = s.b[i];
    s.r[i] = m[0] * r + m[1] * g + m[2] * b;
    s.g[i] = m[4] * r + m[5] * g + m[6] * b;
    s.b[i] = m[8] * r + m[9] * g + m[10] * b;
  }
}

// Rotation of the colour cube about the grey axis (1, 1, 1)/sqrt(3) by the angle (Rodrigues'
// formula). Linear, so it acts on premultiplied values directly and folds with its neighbours.
class HueAdjustKernel final : public PointKernel {
 public:
  explicit HueAdjustKernel(double angle) {
    const double c = std::cos(angle), k = std::sin(angle) / std::sqrt(3.0), q = (1 - c) / 3;
    m_ = {float(c + q), float(q - k), float(q + k), 0,  //
          float(q + k), float(c + q), float(q - k), 0,  //
          float(q - k), float(q + k), float(c + q), 0};
  }
  std::string_view name() const override { return "CIHueAdjust"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { rotateSpan(s, m_); }
  std::optional<std::array<float, 12>> premultipliedMatrix() const override { return m_; }

 private:
  std::array<float, 12> m_{};
};

}  // namespace

void registerHueAdjust() {
  CIFilter::registerOperation(
      "CIHueAdjust",
      {"Hue Adjust", builtinCategories({kCICategoryColorAdjustment}), {imageInput(), numberInput("inputAngle", 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return CIImage::makePoint(std::make_shared<HueAdjustKernel>(f.number("inputAngle")), {input}, input->extent());
      });
}

}  // namespace brenvia::ci
