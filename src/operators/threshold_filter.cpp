#include "operators/threshold_filter.h"

#include "platform/coreimage/ops/op_support.h"
#include "platform/foundation/once.h"

#include <algorithm>

namespace brenvia {
namespace {

class ThresholdKernel final : public ci::PointKernel {
 public:
  ThresholdKernel(float edge0, float edge1) : edge0_(edge0), edge1_(edge1) {}
  std::string_view name() const override { return kBVThresholdCIFilterName; }
  void apply(ci::Span& s, std::span<const ci::Span* const>, const ci::RenderEnv&) const override {
    for (int i = 0; i < s.n; ++i) {
      float l = 0.2126f * s.r[i] + 0.7152f * s.g[i] + 0.0722f * s.b[i];
      float v = smoothstep(l);
      s.r[i] = s.g[i] = s.b[i] = v;
      s.a[i] = 1.0f;
    }
  }

 private:
  // Equal edges make a step at the edge instead of dividing by zero.
  float smoothstep(float x) const {
    if (edge0_ == edge1_) return x < edge0_ ? 0.0f : 1.0f;
    float t = std::clamp((x - edge0_) / (edge1_ - edge0_), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
  }

  float edge0_, edge1_;
};

}  // namespace

void BVRegisterThresholdCIFilter() {
  static BVOnce once;
  once([] {
    CIFilter::registerOperation(
        std::string(kBVThresholdCIFilterName),
        {"Threshold",
         {std::string(kCICategoryColorEffect), std::string(kCICategoryVideo), std::string(kCICategoryStillImage)},
         {ci::imageInput(), ci::numberInput("inputEdge0", 0.25), ci::numberInput("inputEdge1", 0.75)}},
        [](const CIFilter& f) -> CIImageRef {
          CIImageRef input = f.image("inputImage");
          if (!input) return nullptr;
          return CIImage::makePoint(
              std::make_shared<ThresholdKernel>(float(f.number("inputEdge0")), float(f.number("inputEdge1"))), {input},
              input->extent());
        });
  });
}

}  // namespace brenvia
