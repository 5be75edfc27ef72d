#include "platform/coreimage/engine/sampling.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/coreimage/ops/segment_sums.h"

#include <cmath>
#include <vector>

namespace brenvia::ci {
namespace {

// A square box, applied as rows then columns: weights 1 for offsets up to k = ⌊r⌋ and the
// fraction f = r − k for offset k + 1, normalised. Window sums come from prefix sums that restart
// at every multiple of `segment_` in the plane, so the cost does not depend on the radius and a
// pixel's sum is the same whatever tile computes it.
class BoxBlurKernel final : public RegionKernel {
 public:
  explicit BoxBlurKernel(double radius)
      : k_(int64_t(std::floor(radius))),
        f_(float(radius - std::floor(radius))),
        reach_(f_ > 0 ? k_ + 1 : k_),
        scale_(float(1 / (2 * std::floor(radius) + 1 + 2 * (radius - std::floor(radius))))) {
    segment_ = 64;
    while (segment_ < 2 * k_ + 2) segment_ *= 2;
  }
  std::string_view name() const override { return "CIBoxBlur"; }

  PixelRect roi(int, const PixelRect& out) const override {
    if (out.empty()) return {};
    int64_t x0 = floorDiv(out.x - reach_, segment_) * segment_, y0 = floorDiv(out.y - reach_, segment_) * segment_;
    return {x0, y0, out.maxX() + reach_ - x0, out.maxY() + reach_ - y0};
  }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    const size_t w = size_t(r.w), rows = size_t(in.rect.h);
    thread_local std::vector<float> across, prefix, totals, rowPrefix, rowTotals;
    across.resize(rows * w);
    prefix.resize((rows + 1) * w);
    totals.resize((rows / size_t(segment_) + 1) * w);
    rowPrefix.resize(size_t(in.rect.w) + 1);
    rowTotals.resize(size_t(in.rect.w) / size_t(segment_) + 1);
    const int64_t first = r.x - in.rect.x;  // first output column in the input row
    for (int c = 0; c < 4; ++c) {
      for (size_t j = 0; j < rows; ++j) {
        const float* v = in.row(c, in.rect.y + int64_t(j));
        segmentPrefix(v, size_t(in.rect.w), size_t(segment_), rowPrefix.data(), rowTotals.data());
        float* dst = across.data() + j * w;
        for (size_t x = 0; x < w; ++x) {
          int64_t at = first + int64_t(x);
          float sum = windowSum(rowPrefix.data(), rowTotals.data(), at - k_, at + k_ + 1);
          if (f_ > 0) sum += f_ * (v[at - k_ - 1] + v[at + k_ + 1]);
          dst[x] = sum * scale_;
        }
      }
      // The same along columns, all columns of a row at once.
      std::fill_n(prefix.data(), w, 0.0f);
      for (size_t j = 0; j < rows; ++j) {
        const float* v = across.data() + j * w;
        float* e = prefix.data() + j * w;
        float* next = e + w;
        if ((j + 1) % size_t(segment_) == 0) {
          float* total = totals.data() + (j / size_t(segment_)) * w;
          for (size_t x = 0; x < w; ++x) total[x] = e[x] + v[x], next[x] = 0;
        } else {
          for (size_t x = 0; x < w; ++x) next[x] = e[x] + v[x];
        }
      }
      for (int64_t y = 0; y < r.h; ++y) {
        const size_t at = size_t(r.y - in.rect.y + y), a = at - size_t(k_), b = at + size_t(k_) + 1;
        const float* ea = prefix.data() + a * w;
        const float* eb = prefix.data() + b * w;
        float* dst = out.row(c, r.y + y);
        if (a / size_t(segment_) != b / size_t(segment_)) {
          const float* total = totals.data() + (a / size_t(segment_)) * w;
          for (size_t x = 0; x < w; ++x) dst[x] = (eb[x] - ea[x]) + total[x];
        } else {
          for (size_t x = 0; x < w; ++x) dst[x] = eb[x] - ea[x];
        }
        if (f_ > 0) {
          const float* below = across.data() + (at - size_t(k_) - 1) * w;
          const float* above = across.data() + (at + size_t(k_) + 1) * w;
          for (size_t x = 0; x < w; ++x) dst[x] += f_ * (below[x] + above[x]);
        }
        for (size_t x = 0; x < w; ++x) dst[x] *= scale_;
      }
    }
  }

 private:
  // Sum of v over [a, b), b − a ≤ segment.
  float windowSum(const float* prefix, const float* totals, int64_t a, int64_t b) const {
    float sum = prefix[b] - prefix[a];
    if (a / segment_ != b / segment_) sum += totals[a / segment_];
    return sum;
  }

  int64_t k_;
  float f_;
  int64_t reach_;
  float scale_;
  int64_t segment_;
};

}  // namespace

void registerBoxBlur() {
  CIFilter::registerOperation(
      "CIBoxBlur",
      {"Box Blur", builtinCategories({kCICategoryBlur}), {imageInput(), numberInput("inputRadius", 10.0, 1.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const double radius = std::max(1.0, boundedBlurRadius(f.number("inputRadius")));
        if (!std::isfinite(radius)) return input;
        const double reach = std::ceil(radius);
        return CIImage::makeRegion(std::make_shared<BoxBlurKernel>(radius), {input},
                                   CGRectInset(input->extent(), -reach, -reach));
      });
}

}  // namespace brenvia::ci
