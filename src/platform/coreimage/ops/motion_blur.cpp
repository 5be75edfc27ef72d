#include "platform/coreimage/ops/op_support.h"

#include <cmath>
#include <map>
#include <vector>

namespace brenvia::ci {
namespace {

// The average of N bilinear samples along a line through the pixel. The sample offsets are the same
// for every pixel, so the samples fold into one sparse set of pixel weights, applied row by row.
class MotionBlurKernel final : public RegionKernel {
 public:
  MotionBlurKernel(double radius, double angle) {
    const int64_t n = std::max<int64_t>(1, int64_t(std::ceil(2 * radius)) + 1);
    const double ux = std::cos(angle), uy = std::sin(angle);
    std::map<std::pair<int64_t, int64_t>, double> weights;  // (dy, dx) -> weight
    for (int64_t k = 0; k < n; ++k) {
      double t = n == 1 ? 0 : -radius + 2 * radius * double(k) / double(n - 1);
      double ox = t * ux, oy = t * uy;
      double fx = std::floor(ox), fy = std::floor(oy), tx = ox - fx, ty = oy - fy;
      int64_t dx = int64_t(fx), dy = int64_t(fy);
      weights[{dy, dx}] += (1 - tx) * (1 - ty) / double(n);
      weights[{dy, dx + 1}] += tx * (1 - ty) / double(n);
      weights[{dy + 1, dx}] += (1 - tx) * ty / double(n);
      weights[{dy + 1, dx + 1}] += tx * ty / double(n);
    }
    for (const auto& [offset, w] : weights) {
      if (w == 0) continue;
      if (rows_.empty() || rows_.back().dy != offset.first) rows_.push_back({offset.first, {}});
      rows_.back().taps.push_back({offset.second, float(w)});
      reachX_ = std::max(reachX_, std::abs(offset.second));
      reachY_ = std::max(reachY_, std::abs(offset.first));
    }
  }
  std::string_view name() const override { return "CIMotionBlur"; }
  PixelRect roi(int, const PixelRect& out) const override { return out.outset(reachX_, reachY_); }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    const size_t w = size_t(r.w);
    for (int c = 0; c < 4; ++c) {
      for (int64_t y = r.y; y < r.maxY(); ++y) {
        float* acc = out.row(c, y);
        std::fill_n(acc, w, 0.0f);
        for (const Row& row : rows_) {
          const float* src = in.row(c, y + row.dy) + (r.x - in.rect.x);
          for (const Tap& tap : row.taps) {
            const float* s = src + tap.dx;
            for (size_t x = 0; x < w; ++x) acc[x] += tap.weight * s[x];
          }
        }
      }
    }
  }

 private:
  struct Tap {
    int64_t dx;
    float weight;
  };
  struct Row {
    int64_t dy;
    std::vector<Tap> taps;
  };
  std::vector<Row> rows_;
  int64_t reachX_ = 0, reachY_ = 0;
};

}  // namespace

void registerMotionBlur() {
  CIFilter::registerOperation("CIMotionBlur",
                              {"Motion Blur",
                               builtinCategories({kCICategoryBlur}),
                               {imageInput(), numberInput("inputRadius", 20.0, 0.0), numberInput("inputAngle", 0.0)}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                const double radius = boundedBlurRadius(f.number("inputRadius"));
                                const double angle = f.number("inputAngle");
                                if (!(radius > 0) || !std::isfinite(radius) || !std::isfinite(angle)) return input;
                                // A hair's breadth is ignored so that a vertical motion does not grow the extent
                                // sideways.
                                const double dx = std::ceil(radius * std::abs(std::cos(angle)) - 1e-9);
                                const double dy = std::ceil(radius * std::abs(std::sin(angle)) - 1e-9);
                                return CIImage::makeRegion(std::make_shared<MotionBlurKernel>(radius, angle), {input},
                                                           CGRectInset(input->extent(), -dx, -dy));
                              });
}

}  // namespace brenvia::ci
