#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

// An affine map of premultiplied rgb: rows r, g, b over columns r, g, b, a.
BV_VECTOR_CLONES void affineSpan(Span& s, std::array<float, 12> m) {
  for (int i = 0; i < s.n; ++i) {
    float r = s.r[i], g = s.g[i], b = s.b[i], a = s.a[i];
    s.r[i] = m[0] * r + m[1] * g + m[2] * b + m[3] * a;
    s.g[i] = m[4] * r + m[5] * g + m[6] * b + m[7] * a;
    s.b[i] = m[8] * r + m[9] * g + m[10] * b + m[11] * a;
  }
}

// Saturation about the Rec. 709 grey, then an additive brightness, then contrast about 0.5, all on
// unpremultiplied colour. Every step is affine, so on premultiplied pixels the whole operation is
// one matrix whose constant terms scale with alpha.
class ColorControlsKernel final : public PointKernel {
 public:
  ColorControlsKernel(double saturation, double brightness, double contrast) {
    const double luma[3] = {0.2126, 0.7152, 0.0722};
    const double offset = contrast * (brightness - 0.5) + 0.5;
    for (int row = 0; row < 3; ++row) {
      for (int col = 0; col < 3; ++col) {
        double v = (1 - saturation) * luma[col] + (row == col ? saturation : 0.0);
        m_[size_t(row * 4 + col)] = float(contrast * v);
      }
      m_[size_t(row * 4 + 3)] = float(offset);
    }
  }
  std::string_view name() const override { return "CIColorControls"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { affineSpan(s, m_); }
  std::optional<std::array<float, 12>> premultipliedMatrix() const override { return m_; }

 private:
  std::array<float, 12> m_{};
};

}  // namespace

void registerColorControls() {
  CIFilter::registerOperation("CIColorControls",
                              {"Color Controls",
                               builtinCategories({kCICategoryColorAdjustment}),
                               {imageInput(), numberInput("inputSaturation", 1.0, 0.0),
                                numberInput("inputBrightness", 0.0, -1.0), numberInput("inputContrast", 1.0, 0.0)}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                auto kernel = std::make_shared<ColorControlsKernel>(f.number("inputSaturation"),
                                                                                    f.number("inputBrightness"),
                                                                                    f.number("inputContrast"));
                                return CIImage::makePoint(std::move(kernel), {input}, input->extent());
                              });
}

}  // namespace brenvia::ci
