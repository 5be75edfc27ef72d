#include "platform/coreimage/ops/op_support.h"

#include <cmath>

namespace brenvia::ci {
namespace {

BV_VECTOR_CLONES void scaleColourSpan(Span& s, float k) {
  for (int i = 0; i < s.n; ++i) s.r[i] *= k, s.g[i] *= k, s.b[i] *= k;
}

// out.rgb = s.rgb * 2^EV on premultiplied values.
class ExposureKernel final : public PointKernel {
 public:
  explicit ExposureKernel(float ev) : k_(std::exp2(ev)) {}
  std::string_view name() const override { return "CIExposureAdjust"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override { scaleColourSpan(s, k_); }
  std::optional<std::array<float, 12>> premultipliedMatrix() const override {
    return std::array<float, 12>{k_, 0, 0, 0, 0, k_, 0, 0, 0, 0, k_, 0};
  }

 private:
  float k_;
};

}  // namespace

void registerExposureAdjust() {
  CIFilter::registerOperation(
      "CIExposureAdjust",
      {"Exposure Adjust", builtinCategories({kCICategoryColorAdjustment}), {imageInput(), numberInput("inputEV", 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        return CIImage::makePoint(std::make_shared<ExposureKernel>(float(f.number("inputEV"))), {input},
                                  input->extent());
      });
}

}  // namespace brenvia::ci
