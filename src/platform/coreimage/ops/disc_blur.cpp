#include "platform/coreimage/engine/sampling.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/coreimage/ops/segment_sums.h"

#include <cmath>
#include <vector>

namespace brenvia::ci {
namespace {

// A disc with an anti-aliased rim: offset o weighs clamp(r + 0.5 − |o|, 0, 1), normalised. Each row
// of the disc is a run of full weights, summed from row prefix sums, plus the few rim pixels.
// Prefix sums restart at every multiple of `segment_` in the plane, so a pixel's sum is the same
// whatever tile computes it.
class DiscBlurKernel final : public RegionKernel {
 public:
  explicit DiscBlurKernel(double radius) : reach_(int64_t(std::ceil(radius))) {
    double total = 0;
    for (int64_t dy = -reach_; dy <= reach_; ++dy) {
      Row row{dy, -1, {}};
      auto weight = [&](int64_t dx) { return std::clamp(radius + 0.5 - std::hypot(double(dx), double(dy)), 0.0, 1.0); };
      while (row.half < reach_ && weight(row.half + 1) == 1) ++row.half;
      for (int64_t dx = -reach_; dx <= reach_; ++dx) {
        double w = weight(dx);
        if (w > 0 && std::abs(dx) > row.half) row.rim.push_back({dx, float(w)});
        total += w;
      }
      if (row.half >= 0 || !row.rim.empty()) rows_.push_back(std::move(row));
    }
    scale_ = float(1 / total);
    segment_ = 64;
    while (segment_ < 2 * reach_ + 2) segment_ *= 2;
  }
  std::string_view name() const override { return "CIDiscBlur"; }

  PixelRect roi(int, const PixelRect& out) const override {
    if (out.empty()) return {};
    int64_t x0 = floorDiv(out.x - reach_, segment_) * segment_;
    return {x0, out.y - reach_, out.maxX() + reach_ - x0, out.h + 2 * reach_};
  }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    const size_t w = size_t(r.w), width = size_t(in.rect.w), segments = width / size_t(segment_) + 1;
    thread_local std::vector<float> prefix, totals;
    prefix.resize(size_t(in.rect.h) * (width + 1));
    totals.resize(size_t(in.rect.h) * segments);
    const int64_t first = r.x - in.rect.x;  // first output column in an input row
    for (int c = 0; c < 4; ++c) {
      for (int64_t j = 0; j < in.rect.h; ++j) {
        segmentPrefix(in.row(c, in.rect.y + j), width, size_t(segment_), &prefix[size_t(j) * (width + 1)],
                      &totals[size_t(j) * segments]);
      }
      for (int64_t y = 0; y < r.h; ++y) {
        float* acc = out.row(c, r.y + y);
        std::fill_n(acc, w, 0.0f);
        for (const Row& row : rows_) {
          const int64_t j = y + reach_ + row.dy;
          if (row.half >= 0) {
            addRuns(&prefix[size_t(j) * (width + 1)], &totals[size_t(j) * segments], first, row.half, w, acc);
          }
          const float* v = in.row(c, in.rect.y + j) + first;
          for (const Tap& tap : row.rim) {
            const float* s = v + tap.dx;
            for (size_t x = 0; x < w; ++x) acc[x] += tap.weight * s[x];
          }
        }
        for (size_t x = 0; x < w; ++x) acc[x] *= scale_;
      }
    }
  }

 private:
  struct Tap {
    int64_t dx;
    float weight;
  };
  // One row of the disc: offsets −half..half weigh 1; the rim taps lie outside that run.
  struct Row {
    int64_t dy;
    int64_t half;
    std::vector<Tap> rim;
  };

  // acc[x] += sum of the row over [first + x − half, first + x + half], in stretches where neither
  // end changes segment, so the inner loops vectorise.
  void addRuns(const float* prefix, const float* totals, int64_t first, int64_t half, size_t w, float* acc) const {
    size_t x = 0;
    while (x < w) {
      const int64_t a = first + int64_t(x) - half, b = a + 2 * half + 1;
      const int64_t sa = a / segment_, sb = b / segment_;
      const size_t end = std::min(w, x + size_t(std::min((sa + 1) * segment_ - a, (sb + 1) * segment_ - b)));
      const float* ea = prefix + (a - int64_t(x));
      const float* eb = prefix + (b - int64_t(x));
      if (sa != sb) {
        const float total = totals[sa];
        for (size_t i = x; i < end; ++i) acc[i] += (eb[i] - ea[i]) + total;
      } else {
        for (size_t i = x; i < end; ++i) acc[i] += eb[i] - ea[i];
      }
      x = end;
    }
  }

  int64_t reach_;
  std::vector<Row> rows_;
  float scale_ = 1;
  int64_t segment_;
};

}  // namespace

void registerDiscBlur() {
  CIFilter::registerOperation(
      "CIDiscBlur",
      {"Disc Blur", builtinCategories({kCICategoryBlur}), {imageInput(), numberInput("inputRadius", 8.0, 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const double radius = boundedBlurRadius(f.number("inputRadius"));
        if (!(radius > 0) || !std::isfinite(radius)) return input;
        const double reach = std::ceil(radius);
        return CIImage::makeRegion(std::make_shared<DiscBlurKernel>(radius), {input},
                                   CGRectInset(input->extent(), -reach, -reach));
      });
}

}  // namespace brenvia::ci
