#include "platform/coreimage/ops/op_support.h"

#include <array>

namespace brenvia::ci {
namespace {

// Each component, alpha included, is the weighted sum of the 3 × 3 neighbourhood plus the bias,
// clamped to [0, 1]. Weight row 0 is the row above the pixel (y points up).
class Convolution3x3Kernel final : public RegionKernel {
 public:
  Convolution3x3Kernel(const std::array<float, 9>& weights, float bias) : weights_(weights), bias_(bias) {}
  std::string_view name() const override { return "CIConvolution3X3"; }
  PixelRect roi(int, const PixelRect& out) const override { return out.outset(1, 1); }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    const size_t w = size_t(r.w);
    for (int c = 0; c < 4; ++c) {
      for (int64_t y = r.y; y < r.maxY(); ++y) {
        float* acc = out.row(c, y);
        std::fill_n(acc, w, bias_);
        for (int j = 0; j < 3; ++j) {
          const float* src = in.row(c, y + 1 - j) + (r.x - in.rect.x);
          for (int i = 0; i < 3; ++i) {
            const float wt = weights_[size_t(3 * j + i)];
            const float* s = src + (i - 1);
            for (size_t x = 0; x < w; ++x) acc[x] += wt * s[x];
          }
        }
        for (size_t x = 0; x < w; ++x) acc[x] = std::clamp(acc[x], 0.0f, 1.0f);
      }
    }
  }

 private:
  std::array<float, 9> weights_;
  float bias_;
};

}  // namespace

void registerConvolution3X3() {
  CIFilter::registerOperation(
      "CIConvolution3X3",
      {"3 by 3 Convolution",
       builtinCategories({kCICategoryStylize}),
       {imageInput(), vectorInput("inputWeights", {0, 0, 0, 0, 1, 0, 0, 0, 0}), numberInput("inputBias", 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const CIVector v = f.vector("inputWeights");
        std::array<float, 9> weights;
        for (size_t i = 0; i < 9; ++i) weights[i] = float(v.valueAtIndex(i));
        return CIImage::makeRegion(std::make_shared<Convolution3x3Kernel>(weights, float(f.number("inputBias"))),
                                   {input}, CGRectInset(input->extent(), -1, -1));
      });
}

}  // namespace brenvia::ci
