#include "platform/coreimage/ops/op_support.h"

#include <algorithm>

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void unsharpSpan(Span& s, const Span& b, float k) {
  for (int i = 0; i < s.n; ++i) {
    s.r[i] += k * (s.r[i] - b.r[i]);
    s.g[i] += k * (s.g[i] - b.g[i]);
    s.b[i] += k * (s.b[i] - b.b[i]);
  }
}

// out.rgb = s.rgb + intensity·(s.rgb − blurred.rgb) on premultiplied values; alpha is kept.
class UnsharpMaskKernel final : public PointKernel {
 public:
  explicit UnsharpMaskKernel(float intensity) : k_(intensity) {}
  std::string_view name() const override { return "CIUnsharpMask"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    unsharpSpan(s, *others[0], k_);
  }

 private:
  float k_;
};

}  // namespace

void registerUnsharpMask() {
  CIFilter::registerOperation(
      "CIUnsharpMask",
      {"Unsharp Mask",
       builtinCategories({kCICategorySharpen}),
       {imageInput(), numberInput("inputRadius", 2.5, 0.0), numberInput("inputIntensity", 0.5, 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        CIImageRef blurred = input->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", f.number("inputRadius")}});
        if (!blurred) return nullptr;
        const float intensity = float(std::max(0.0, f.number("inputIntensity")));
        return CIImage::makePoint(std::make_shared<UnsharpMaskKernel>(intensity), {input, blurred}, input->extent());
      });
}

}  // namespace brenvia::ci
