#include "platform/coreimage/engine/fast_math.h"
#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {
namespace {

BV_FUSED_VECTOR_CLONES void gammaSpan(float* r, float* g, float* b, const float* a, int n, float power) {
  if (power == 1.0f) {
    // Unpremultiplying and premultiplying again only clears colour where alpha is zero.
    for (int i = 0; i < n; ++i) {
      bool visible = a[i] > 0;
      r[i] = visible ? r[i] : 0, g[i] = visible ? g[i] : 0, b[i] = visible ? b[i] : 0;
    }
    return;
  }
  for (int i = 0; i < n; ++i) {
    float k = unpremultiplyFactor(a[i]);
    r[i] = fast::signedPow(r[i] * k, power) * a[i];
    g[i] = fast::signedPow(g[i] * k, power) * a[i];
    b[i] = fast::signedPow(b[i] * k, power) * a[i];
  }
}

// sign(S)·|S|^power on unpremultiplied colour; negative values mirror the curve.
class GammaAdjustKernel final : public PointKernel {
 public:
  explicit GammaAdjustKernel(float power) : power_(power) {}
  std::string_view name() const override { return "CIGammaAdjust"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override {
    gammaSpan(s.r, s.g, s.b, s.a, s.n, power_);
  }

 private:
  float power_;
};

}  // namespace

void registerGammaAdjust() {
  CIFilter::registerOperation("CIGammaAdjust",
                              {"Gamma Adjust",
                               builtinCategories({kCICategoryColorAdjustment}),
                               {imageInput(), numberInput("inputPower", 0.75)}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                return CIImage::makePoint(
                                    std::make_shared<GammaAdjustKernel>(float(f.number("inputPower"))), {input},
                                    input->extent());
                              });
}

}  // namespace brenvia::ci
