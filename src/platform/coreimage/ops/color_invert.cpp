#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void invertSpan(Span& s) {
  for (int i = 0; i < s.n; ++i) {
    float a = s.a[i];
    s.r[i] = a - s.r[i];
    s.g[i] = a - s.g[i];
    s.b[i] = a - s.b[i];
  }
}

// 1 - S.rgb on unpremultiplied colour, which on premultiplied pixels is a - s.rgb.
class ColorInvertKernel final : public PointKernel {
 public:
  std::string_view name() const override { return "CIColorInvert"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { invertSpan(s); }
  std::optional<std::array<float, 12>> premultipliedMatrix() const override {
    return std::array<float, 12>{-1, 0, 0, 1, 0, -1, 0, 1, 0, 0, -1, 1};
  }
};

}  // namespace

void registerColorInvert() {
  CIFilter::registerOperation(
      "CIColorInvert", {"Color Invert", builtinCategories({kCICategoryColorEffect}), {imageInput()}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return CIImage::makePoint(std::make_shared<ColorInvertKernel>(), {input}, input->extent());
      });
}

}  // namespace brenvia::ci
