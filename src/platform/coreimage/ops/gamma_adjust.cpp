#include "platform/coreimage/ops/op_support.h"

#include <cmath>

namespace brenvia::ci {
namespace {

// sign(S)·|S|^power on unpremultiplied colour; negative values mirror the curve.
class GammaAdjustKernel final : public PointKernel {
 public:
  explicit GammaAdjustKernel(float power) : power_(power) {}
  std::string_view name() const override { return "CIGammaAdjust"; }

  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override {
    float* planes[3] = {s.r, s.g, s.b};
    for (float* p : planes) {
      if (power_ == 1.0f) {
        for (int i = 0; i < s.n; ++i) p[i] = p[i] * unpremultiplyFactor(s.a[i]) * s.a[i];
      } else {
        for (int i = 0; i < s.n; ++i) {
          float c = p[i] * unpremultiplyFactor(s.a[i]);
          p[i] = std::copysign(std::pow(std::abs(c), power_), c) * s.a[i];
        }
      }
    }
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
