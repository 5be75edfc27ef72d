#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void sharpenLumaSpan(Span& s, const Span& blurred, float sharpness) {
  for (int i = 0; i < s.n; ++i) {
    float y = unpremultipliedLuma(s, i);
    float lift = s.a[i] > 0 ? sharpness * (y - blurred.r[i]) * s.a[i] : 0.0f;
    s.r[i] += lift;
    s.g[i] += lift;
    s.b[i] += lift;
  }
}

// Adds sharpness·(Y − blurred Y) to each unpremultiplied colour component: the same amount on r, g
// and b, so colour differences are left alone. Premultiplied, that is the amount times alpha.
class SharpenLuminanceKernel final : public PointKernel {
 public:
  explicit SharpenLuminanceKernel(float sharpness) : sharpness_(sharpness) {}
  std::string_view name() const override { return "CISharpenLuminance"; }
  void apply(Span& s, std::span<const Span* const> others, const RenderEnv&) const override {
    sharpenLumaSpan(s, *others[0], sharpness_);
  }

 private:
  float sharpness_;
};

}  // namespace

void registerSharpenLuminance() {
  CIFilter::registerOperation(
      "CISharpenLuminance",
      {"Sharpen Luminance",
       builtinCategories({kCICategorySharpen}),
       {imageInput(), numberInput("inputSharpness", 0.4), numberInput("inputRadius", 1.69)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        CIImageRef blurred =
            lumaPlane(input)->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", f.number("inputRadius")}});
        if (!blurred) return nullptr;
        return CIImage::makePoint(std::make_shared<SharpenLuminanceKernel>(float(f.number("inputSharpness"))),
                                  {input, blurred}, input->extent());
      });
}

}  // namespace brenvia::ci
