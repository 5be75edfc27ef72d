#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

using Vec4 = std::array<float, 4>;

Vec4 vec4(const CIVector& v) {
  return {float(v.valueAtIndex(0)), float(v.valueAtIndex(1)), float(v.valueAtIndex(2)), float(v.valueAtIndex(3))};
}

// Rows r, g, b, a of the matrix, then the bias.
struct ColourMatrix {
  Vec4 rows[4];
  Vec4 bias;
};

BV_VECTOR_CLONES void colourMatrixSpan(Span& s, ColourMatrix m) {
  for (int i = 0; i < s.n; ++i) {
    float k = unpremultiplyFactor(s.a[i]);
    float c[4] = {s.r[i] * k, s.g[i] * k, s.b[i] * k, s.a[i]};
    float out[4];
    for (int j = 0; j < 4; ++j) {
      const Vec4& row = m.rows[j];
      out[j] = row[0] * c[0] + row[1] * c[1] + row[2] * c[2] + row[3] * c[3] + m.bias[size_t(j)];
    }
    s.r[i] = out[0] * out[3], s.g[i] = out[1] * out[3], s.b[i] = out[2] * out[3], s.a[i] = out[3];
  }
}

// S' = (S.R, S.G, S.B, S.A) + bias on unpremultiplied S, then premultiplied with the new alpha.
// Nothing is clamped, not even alpha.
class ColorMatrixKernel final : public PointKernel {
 public:
  ColorMatrixKernel(const Vec4& r, const Vec4& g, const Vec4& b, const Vec4& a, const Vec4& bias)
      : m_{{r, g, b, a}, bias} {}
  std::string_view name() const override { return "CIColorMatrix"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { colourMatrixSpan(s, m_); }

  bool isPerPixel() const override { return true; }

  // With alpha passed through unchanged the matrix is affine on premultiplied rgb.
  std::optional<std::array<float, 12>> premultipliedMatrix() const override {
    if (m_.rows[3] != Vec4{0, 0, 0, 1} || m_.bias[3] != 0) return std::nullopt;
    std::array<float, 12> m;
    for (size_t j = 0; j < 3; ++j) {
      const Vec4& row = m_.rows[j];
      m[j * 4] = row[0], m[j * 4 + 1] = row[1], m[j * 4 + 2] = row[2];
      m[j * 4 + 3] = row[3] + m_.bias[j];
    }
    return m;
  }

 private:
  ColourMatrix m_;
};

}  // namespace

void registerColorMatrix() {
  CIFilter::registerOperation(
      "CIColorMatrix",
      {"Color Matrix",
       builtinCategories({kCICategoryColorAdjustment}),
       {imageInput(), vectorInput("inputRVector", {1, 0, 0, 0}), vectorInput("inputGVector", {0, 1, 0, 0}),
        vectorInput("inputBVector", {0, 0, 1, 0}), vectorInput("inputAVector", {0, 0, 0, 1}),
        vectorInput("inputBiasVector", {0, 0, 0, 0})}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        auto kernel = std::make_shared<ColorMatrixKernel>(
            vec4(f.vector("inputRVector")), vec4(f.vector("inputGVector")), vec4(f.vector("inputBVector")),
            vec4(f.vector("inputAVector")), vec4(f.vector("inputBiasVector")));
        return CIImage::makePoint(std::move(kernel), {input}, input->extent());
      });
}

}  // namespace brenvia::ci
