// CIGaussianBlur. Small sigmas convolve directly, tile by tile. Larger ones use a sliding sum of
// a few cosine terms fitted to the truncated Gaussian window: each pass costs the same whatever the
// radius, and because the fit is made on the window itself the result matches the direct
// convolution, including its hard cut at 3σ.
#include "platform/coreimage/ops/op_support.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include <hwy/base.h>

// This file is compiled once per vector target (see below); the shared type is defined only once.
#ifndef BRENVIA_OPS_GAUSSIAN_BLUR_WINDOW
#define BRENVIA_OPS_GAUSSIAN_BLUR_WINDOW
namespace brenvia::ci::sliding {

// The fitted window: weight(i) = c0 + Σ c[k]·cos(ω_k·i) for |i| ≤ n, zero outside.
struct CosineWindow {
  static constexpr int kTerms = 5;
  int64_t n = 0;
  float c0 = 0;
  float c[kTerms] = {};
  // Per term: phase of an entering sample e^{iω(n+1)}, of a leaving one e^{−iωn}, and the rotation
  // e^{−iω} that recentres the sum on the next position.
  float inRe[kTerms] = {}, inIm[kTerms] = {}, outRe[kTerms] = {}, outIm[kTerms] = {};
  float rotRe[kTerms] = {}, rotIm[kTerms] = {};
};

// Sequences filtered side by side: rows in the horizontal pass, columns in the vertical one.
inline constexpr size_t kRowLanes = 16;
inline constexpr size_t kColumnLanes = 128;

}  // namespace brenvia::ci::sliding
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/coreimage/ops/gaussian_blur.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace brenvia::ci::sliding::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Moves the window of `lanes` independent sequences one position on: `enter` joins at the front,
// `leave` drops out at the back, and the filtered value of the new position goes to `result`.
// The state holds, per lane, the plain window sum and then the real and imaginary parts of each
// term's sum.
HWY_INLINE void Step(const CosineWindow& w, float* HWY_RESTRICT state, size_t lanes, const float* HWY_RESTRICT enter,
                     const float* HWY_RESTRICT leave, float* HWY_RESTRICT result) {
  const hn::ScalableTag<float> d;
  for (size_t i = 0; i < lanes; i += hn::Lanes(d)) {
    const auto a = hn::LoadU(d, enter + i);
    const auto b = hn::LoadU(d, leave + i);
    const auto sum = hn::Add(hn::Load(d, state + i), hn::Sub(a, b));
    hn::Store(sum, d, state + i);
    auto acc = hn::Mul(sum, hn::Set(d, w.c0));
    for (int k = 0; k < CosineWindow::kTerms; ++k) {
      float* re = state + (1 + 2 * size_t(k)) * lanes + i;
      float* im = re + lanes;
      auto zr = hn::NegMulAdd(b, hn::Set(d, w.outRe[k]), hn::MulAdd(a, hn::Set(d, w.inRe[k]), hn::Load(d, re)));
      auto zi = hn::NegMulAdd(b, hn::Set(d, w.outIm[k]), hn::MulAdd(a, hn::Set(d, w.inIm[k]), hn::Load(d, im)));
      const auto cr = hn::Set(d, w.rotRe[k]), ci = hn::Set(d, w.rotIm[k]);
      const auto nr = hn::MulAdd(zr, cr, hn::Mul(zi, ci));
      const auto ni = hn::NegMulAdd(zr, ci, hn::Mul(zi, cr));
      hn::Store(nr, d, re);
      hn::Store(ni, d, im);
      acc = hn::MulAdd(nr, hn::Set(d, w.c[k]), acc);
    }
    hn::StoreU(acc, d, result + i);
  }
}

// n must be a multiple of 16, a whole number of vectors on every target.
HWY_INLINE void ToFloat(const hwy::float16_t* HWY_RESTRICT from, float* HWY_RESTRICT to, size_t n) {
  const hn::ScalableTag<float> df;
  const hn::Rebind<hwy::float16_t, decltype(df)> dh;
  for (size_t i = 0; i < n; i += hn::Lanes(df)) hn::StoreU(hn::PromoteTo(df, hn::LoadU(dh, from + i)), df, to + i);
}

HWY_INLINE void ToHalf(const float* HWY_RESTRICT from, hwy::float16_t* HWY_RESTRICT to, size_t n) {
  const hn::ScalableTag<float> df;
  const hn::Rebind<hwy::float16_t, decltype(df)> dh;
  for (size_t i = 0; i < n; i += hn::Lanes(df)) hn::StoreU(hn::DemoteTo(dh, hn::LoadU(df, from + i)), dh, to + i);
}

void HalfToFloat(const hwy::float16_t* from, float* to, size_t n) { ToFloat(from, to, n); }
void FloatToHalf(const float* from, hwy::float16_t* to, size_t n) { ToHalf(from, to, n); }

// Filters kRowLanes sequences of `length` samples stored interleaved (sample t of lane l at
// in[t·kRowLanes + l]); output x, for the window [x, x + 2n], goes to out[x·kRowLanes + l].
void FilterRows(const CosineWindow& w, const float* in, int64_t length, float* out) {
  HWY_ALIGN float state[(1 + 2 * CosineWindow::kTerms) * kRowLanes] = {};
  HWY_ALIGN float zero[kRowLanes] = {}, discard[kRowLanes];
  const int64_t span = 2 * w.n + 1;
  for (int64_t t = 0; t < length; ++t) {
    const float* leave = t >= span ? in + size_t(t - span) * kRowLanes : zero;
    float* result = t >= span - 1 ? out + size_t(t - span + 1) * kRowLanes : discard;
    Step(w, state, kRowLanes, in + size_t(t) * kRowLanes, leave, result);
  }
}

// Filters `lanes` columns (a multiple of 16) of half-float rows in place. Sample t of a column is
// in row t + 1; output y, for the window [y, y + 2n], replaces row y, which held the sample that
// left the window in the same step.
void FilterColumns(const CosineWindow& w, hwy::float16_t* rows, size_t stride, int64_t length, size_t lanes) {
  HWY_ALIGN float state[(1 + 2 * CosineWindow::kTerms) * kColumnLanes] = {};
  HWY_ALIGN float enter[kColumnLanes], leave[kColumnLanes] = {}, result[kColumnLanes];
  const int64_t span = 2 * w.n + 1;
  for (int64_t t = 0; t < length; ++t) {
    ToFloat(rows + size_t(t + 1) * stride, enter, lanes);
    if (t >= span) ToFloat(rows + size_t(t - span + 1) * stride, leave, lanes);
    Step(w, state, lanes, enter, leave, result);
    if (t >= span - 1) ToHalf(result, rows + size_t(t - span + 1) * stride, lanes);
  }
}

}  // namespace brenvia::ci::sliding::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace brenvia::ci {
namespace sliding {

HWY_EXPORT(HalfToFloat);
HWY_EXPORT(FloatToHalf);
HWY_EXPORT(FilterRows);
HWY_EXPORT(FilterColumns);

}  // namespace sliding

namespace {

using sliding::CosineWindow;
using sliding::kColumnLanes;
using sliding::kRowLanes;

// The memory a very wide blur of a small picture may take for its planes.
constexpr size_t kWidestBlurBytes = size_t{256} << 20;

// Up to this sigma the window has at most 19 taps and direct convolution is cheaper.
constexpr double kDirectSigmaLimit = 3.0;

size_t roundUp16(int64_t v) { return (size_t(v) + 15) & ~size_t{15}; }

// exp(−i²/2σ²) for |i| ≤ n, normalised to sum 1; entry i + n.
std::vector<double> gaussianWeights(double sigma, int64_t n) {
  std::vector<double> w(size_t(2 * n + 1));
  double sum = 0;
  for (int64_t i = -n; i <= n; ++i) sum += w[size_t(i + n)] = std::exp(-double(i * i) / (2 * sigma * sigma));
  for (double& v : w) v /= sum;
  return w;
}

// Solves the small dense system a·x = b (Gaussian elimination with partial pivoting).
template <size_t N>
std::array<double, N> solve(std::array<std::array<double, N>, N> a, std::array<double, N> b) {
  for (size_t i = 0; i < N; ++i) {
    size_t p = i;
    for (size_t r = i + 1; r < N; ++r)
      if (std::abs(a[r][i]) > std::abs(a[p][i])) p = r;
    std::swap(a[i], a[p]);
    std::swap(b[i], b[p]);
    for (size_t r = i + 1; r < N; ++r) {
      double f = a[r][i] / a[i][i];
      for (size_t c = i; c < N; ++c) a[r][c] -= f * a[i][c];
      b[r] -= f * b[i];
    }
  }
  std::array<double, N> x{};
  for (size_t i = N; i-- > 0;) {
    double v = b[i];
    for (size_t c = i + 1; c < N; ++c) v -= a[i][c] * x[c];
    x[i] = v / a[i][i];
  }
  return x;
}

// Least-squares fit of c0 + Σ c_k·cos(ω_k·i), ω_k = πk / (p·(n + 1)), to the Gaussian weights on
// [−n, n]. The period factor p is searched; the fit with the smallest summed absolute error wins
// (below 1e-5 for every sigma the window is used for).
CosineWindow fitGaussianWindow(double sigma) {
  constexpr size_t kBasis = CosineWindow::kTerms + 1;
  const int64_t n = int64_t(std::ceil(3 * sigma));
  const std::vector<double> weights = gaussianWeights(sigma, n);
  double bestError = INFINITY, bestOmega = 0;
  std::array<double, kBasis> best{};
  std::vector<double> basis(size_t(n + 1) * kBasis);
  for (int step = 0; step <= 15; ++step) {
    const double omega = std::numbers::pi / ((1.0 + 0.02 * step) * double(n + 1));
    std::array<std::array<double, kBasis>, kBasis> a{};
    std::array<double, kBasis> b{};
    for (int64_t i = 0; i <= n; ++i) {
      double* f = &basis[size_t(i) * kBasis];
      for (size_t k = 0; k < kBasis; ++k) f[k] = std::cos(omega * double(k) * double(i));
      const double count = i == 0 ? 1 : 2;  // i and −i
      for (size_t r = 0; r < kBasis; ++r) {
        b[r] += count * f[r] * weights[size_t(i + n)];
        for (size_t c = 0; c < kBasis; ++c) a[r][c] += count * f[r] * f[c];
      }
    }
    const auto coefficients = solve(a, b);
    double error = 0;
    for (int64_t i = 0; i <= n; ++i) {
      double v = 0;
      for (size_t k = 0; k < kBasis; ++k) v += coefficients[k] * basis[size_t(i) * kBasis + k];
      error += (i == 0 ? 1 : 2) * std::abs(v - weights[size_t(i + n)]);
    }
    if (error < bestError) bestError = error, bestOmega = omega, best = coefficients;
  }
  CosineWindow w;
  w.n = n;
  w.c0 = float(best[0]);
  for (int k = 0; k < CosineWindow::kTerms; ++k) {
    const double omega = bestOmega * (k + 1);
    w.c[k] = float(best[size_t(k + 1)]);
    w.inRe[k] = float(std::cos(omega * double(n + 1)));
    w.inIm[k] = float(std::sin(omega * double(n + 1)));
    w.outRe[k] = float(std::cos(omega * double(n)));
    w.outIm[k] = float(-std::sin(omega * double(n)));
    w.rotRe[k] = float(std::cos(omega));
    w.rotIm[k] = float(std::sin(omega));
  }
  return w;
}

// Direct separable convolution with a symmetric window: rows into a scratch buffer, then columns.
// Every pixel sums its taps in the same order whatever the tile.
class SeparableConvolution final : public RegionKernel {
 public:
  explicit SeparableConvolution(std::vector<float> weights)
      : weights_(std::move(weights)), n_(int64_t(weights_.size() / 2)) {}
  std::string_view name() const override { return "CIGaussianBlur"; }
  PixelRect roi(int, const PixelRect& out) const override { return out.outset(n_, n_); }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    const size_t w = size_t(r.w), rows = size_t(r.h + 2 * n_), taps = weights_.size();
    thread_local std::vector<float> scratch;
    scratch.resize(w * rows);
    for (int c = 0; c < 4; ++c) {
      for (size_t k = 0; k < rows; ++k) {
        const float* src = in.row(c, r.y - n_ + int64_t(k)) + (r.x - n_ - in.rect.x);
        float* dst = scratch.data() + k * w;
        for (size_t x = 0; x < w; ++x) dst[x] = weights_[0] * src[x];
        for (size_t i = 1; i < taps; ++i) {
          const float wi = weights_[i];
          const float* s = src + i;
          for (size_t x = 0; x < w; ++x) dst[x] += wi * s[x];
        }
      }
      for (int64_t y = 0; y < r.h; ++y) {
        const float* src = scratch.data() + size_t(y) * w;
        float* dst = out.row(c, r.y + y);
        for (size_t x = 0; x < w; ++x) dst[x] = weights_[0] * src[x];
        for (size_t i = 1; i < taps; ++i) {
          const float wi = weights_[i];
          const float* s = src + i * w;
          for (size_t x = 0; x < w; ++x) dst[x] += wi * s[x];
        }
      }
    }
  }

 private:
  std::vector<float> weights_;
  int64_t n_;
};

// The computed blur: four planes of half floats, rows bottom first, padded for whole vectors.
class HalfPlanes final : public RowSource {
 public:
  HalfPlanes(const PixelRect& rect, int64_t rows)
      : rect_(rect), stride_(roundUp16(rect.w) + 16), planeSize_(stride_ * size_t(rows)) {
    memory_.reset(new hwy::float16_t[4 * planeSize_ + 16]);
  }
  hwy::float16_t* plane(int c) const { return memory_.get() + size_t(c) * planeSize_; }
  size_t stride() const { return stride_; }

  void read(Span& s) const override {
    if (s.y < rect_.y || s.y >= rect_.maxY()) {
      s.clear();
      return;
    }
    const int from = int(std::clamp<int64_t>(rect_.x - s.x, 0, s.n));
    const int to = int(std::clamp<int64_t>(rect_.maxX() - s.x, from, s.n));
    s.clear(0, from);
    s.clear(to, s.n);
    if (to <= from) return;
    const size_t offset = size_t(s.y - rect_.y) * stride_ + size_t(s.x + from - rect_.x);
    const size_t count = size_t(to - from);
    HWY_ALIGN float converted[kSpan + 16];
    float* into[4] = {s.r, s.g, s.b, s.a};
    for (int c = 0; c < 4; ++c) {
      HWY_DYNAMIC_DISPATCH(sliding::HalfToFloat)(plane(c) + offset, converted, roundUp16(int64_t(count)));
      std::memcpy(into[c] + from, converted, count * sizeof(float));
    }
  }

 private:
  PixelRect rect_;
  size_t stride_, planeSize_;
  std::unique_ptr<hwy::float16_t[]> memory_;
};

// The sliding-window blur over everything the render needs. Rows are filtered in bands of
// kRowLanes as the input is rendered, the result kept in half floats; columns are then filtered in
// place. Every row and column is processed whole and in the same way for any thread count.
class SlidingGaussian final : public WholeImageKernel {
 public:
  SlidingGaussian(const CosineWindow& window, const PixelRect& inputExtent) : w_(window), inputExtent_(inputExtent) {}
  std::string_view name() const override { return "CIGaussianBlur"; }
  PixelRect roi(int, const PixelRect& out) const override { return out.outset(w_.n, w_.n); }

  std::shared_ptr<const RowSource> compute(const BandRenderer& input, const PixelRect& out,
                                           const RenderEnv&) const override {
    const int64_t n = w_.n, samples = out.h + 2 * n, inWidth = out.w + 2 * n;
    const size_t width = roundUp16(out.w);
    auto result = std::make_shared<HalfPlanes>(out, samples + 1);

    struct Scratch {
      PlanarBuffer band;
      std::vector<float> interleaved, filtered, row;
    };
    tbb::enumerable_thread_specific<Scratch> scratch;
    const int64_t bands = (samples + int64_t(kRowLanes) - 1) / int64_t(kRowLanes);
    tbb::parallel_for(int64_t(0), bands, [&](int64_t b) {
      Scratch& s = scratch.local();
      const int64_t first = b * int64_t(kRowLanes), count = std::min<int64_t>(int64_t(kRowLanes), samples - first);
      const PixelRect rect{out.x - n, out.y - n + first, inWidth, count};
      // Rows beyond the input are transparent and stay so: a window far wider than the picture
      // then costs the picture's rows, not the window's.
      if (rect.intersect(inputExtent_).empty()) {
        for (int c = 0; c < 4; ++c) {
          std::fill_n(result->plane(c) + size_t(first + 1) * result->stride(), size_t(count) * result->stride(),
                      hwy::float16_t());
        }
        return;
      }
      s.band.reset(rect);
      input(0, rect, s.band.view());
      s.interleaved.assign(size_t(inWidth) * kRowLanes, 0.0f);
      s.filtered.resize(size_t(out.w) * kRowLanes);
      s.row.assign(width, 0.0f);
      for (int c = 0; c < 4; ++c) {
        const float* src[kRowLanes];
        for (int64_t l = 0; l < count; ++l) src[l] = s.band.view().row(c, rect.y + l);
        for (int64_t t = 0; t < inWidth; ++t) {
          float* to = &s.interleaved[size_t(t) * kRowLanes];
          for (int64_t l = 0; l < count; ++l) to[l] = src[l][t];
        }
        HWY_DYNAMIC_DISPATCH(sliding::FilterRows)(w_, s.interleaved.data(), inWidth, s.filtered.data());
        for (int64_t l = 0; l < count; ++l) {
          const float* from = s.filtered.data() + l;
          for (int64_t x = 0; x < out.w; ++x) s.row[size_t(x)] = from[size_t(x) * kRowLanes];
          hwy::float16_t* row = result->plane(c) + size_t(first + l + 1) * result->stride();
          HWY_DYNAMIC_DISPATCH(sliding::FloatToHalf)(s.row.data(), row, width);
        }
      }
    });

    const int64_t chunks = int64_t((width + kColumnLanes - 1) / kColumnLanes);
    tbb::parallel_for(int64_t(0), 4 * chunks, [&](int64_t task) {
      const int c = int(task % 4);
      const size_t x0 = size_t(task / 4) * kColumnLanes;
      HWY_DYNAMIC_DISPATCH(sliding::FilterColumns)
      (w_, result->plane(c) + x0, result->stride(), samples, std::min(kColumnLanes, width - x0));
    });
    return result;
  }

 private:
  CosineWindow w_;
  PixelRect inputExtent_;
};

// The widest Gaussian over a finite picture: the larger of its longer side (beyond which the blur
// over the picture changes little more) and what keeps the half-float planes of a sliding blur,
// 2 bytes a channel over the picture's width and its height plus 6 sigma, within a fixed budget.
// Memory then stays bounded however large the radius asked.
double boundedSigma(double sigma, const CGRect& extent) {
  if (CGRectIsInfinite(extent) || CGRectIsEmpty(extent)) return sigma;
  const double w = extent.size.width, h = extent.size.height;
  const double withinBudget = (double(kWidestBlurBytes) / (8.0 * w) - h) / 6.0;
  return std::min(sigma, std::max({w, h, withinBudget}));
}

}  // namespace

void registerGaussianBlur() {
  CIFilter::registerOperation(
      "CIGaussianBlur",
      {"Gaussian Blur", builtinCategories({kCICategoryBlur}), {imageInput(), numberInput("inputRadius", 10.0, 0.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const double sigma = boundedSigma(f.number("inputRadius"), input->extent());
        if (!(sigma >= 0.1) || !std::isfinite(sigma)) return input;
        const int64_t n = int64_t(std::ceil(3 * sigma));
        const CGRect extent = CGRectInset(input->extent(), -double(n), -double(n));
        if (sigma <= kDirectSigmaLimit) {
          const std::vector<double> exact = gaussianWeights(sigma, n);
          auto kernel = std::make_shared<SeparableConvolution>(std::vector<float>(exact.begin(), exact.end()));
          return CIImage::makeRegion(std::move(kernel), {input}, extent);
        }
        return CIImage::makeWholeImage(
            std::make_shared<SlidingGaussian>(fitGaussianWindow(sigma), PixelRect::covering(input->extent())), {input},
            extent);
      });
}

}  // namespace brenvia::ci
#endif  // HWY_ONCE
