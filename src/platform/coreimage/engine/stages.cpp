#include "platform/coreimage/engine/sampling.h"
#include "platform/coreimage/engine/stage.h"
#include "platform/foundation/check.h"

#include <cmath>

namespace brenvia::ci {
namespace {

// Zeroes the pixels of the span outside `extent`.
void clipToExtent(Span& s, const PixelRect& extent) {
  if (s.y < extent.y || s.y >= extent.maxY()) {
    s.clear();
    return;
  }
  int from = int(std::clamp<int64_t>(extent.x - s.x, 0, s.n));
  int to = int(std::clamp<int64_t>(extent.maxX() - s.x, from, s.n));
  s.clear(0, from);
  s.clear(to, s.n);
}

bool spanInside(const Span& s, const PixelRect& extent) {
  return s.y >= extent.y && s.y < extent.maxY() && s.x >= extent.x && s.x + s.n <= extent.maxX();
}

// A stage that reads nothing (flat colours, the empty image).
class SourcelessStage : public Stage {
 public:
  size_t maxInputs() const override { return 0; }
};

// A stage that reads exactly one input (crops, clamps, transforms).
class OneInputStage : public Stage {
 public:
  size_t minInputs() const override { return 1; }
  size_t maxInputs() const override { return 1; }
};

class EmptyStage final : public SourcelessStage {
 public:
  void row(Span& s, TileState&) const override { s.clear(); }
};

class ColorStage final : public SourcelessStage {
 public:
  explicit ColorStage(const std::array<float, 4>& p) : p_(p) {}
  void row(Span& s, TileState&) const override {
    for (int i = 0; i < s.n; ++i) {
      s.r[i] = p_[0];
      s.g[i] = p_[1];
      s.b[i] = p_[2];
      s.a[i] = p_[3];
    }
  }

 private:
  std::array<float, 4> p_;
};

class PointStage final : public Stage {
 public:
  PointStage(std::shared_ptr<const PointKernel> kernel, const RenderEnv& env) : kernel_(std::move(kernel)), env_(env) {}

  size_t maxInputs() const override { return 1 + kMaxOthers; }
  void row(Span& s, TileState& ts) const override {
    if (!inputs.empty()) inputs[0]->read(s, ts);
    const Span* others[kMaxOthers] = {};
    const size_t count = inputs.empty() ? 0 : inputs.size() - 1;
    for (size_t k = 0; k < count; ++k) {
      Span& t = ts.span(id, k + 1);
      t.x = s.x;
      t.y = s.y;
      t.n = s.n;
      inputs[k + 1]->read(t, ts);
      others[k] = &t;
    }
    kernel_->apply(s, std::span<const Span* const>(others, count), env_);
    if (!spanInside(s, extent)) clipToExtent(s, extent);
  }

 private:
  static constexpr size_t kMaxOthers = 4;
  std::shared_ptr<const PointKernel> kernel_;
  RenderEnv env_;
};

class CropStage final : public OneInputStage {
 public:
  explicit CropStage(const CGRect& r) {
    // Pixel-centre test on a half-open rectangle: pixel x is inside when x + 0.5 lies in [minX, maxX).
    auto lo = [](double v) { return int64_t(std::ceil(std::clamp(v - 0.5, -1e15, 1e15))); };
    x0_ = lo(CGRectGetMinX(r));
    x1_ = lo(CGRectGetMaxX(r));
    y0_ = lo(CGRectGetMinY(r));
    y1_ = lo(CGRectGetMaxY(r));
  }
  void row(Span& s, TileState& ts) const override {
    inputs[0]->read(s, ts);
    clipToExtent(s, PixelRect{x0_, y0_, x1_ - x0_, y1_ - y0_});
  }

 private:
  int64_t x0_, x1_, y0_, y1_;
};

// Extends the edge pixels of a finite image to infinity.
class ClampStage final : public OneInputStage {
 public:
  explicit ClampStage(const CGRect& e) : e_(PixelRect::covering(e)) {}

  PixelRect inputRoi(int, const PixelRect& r) const override {
    int64_t x0 = std::clamp(r.x, e_.x, e_.maxX() - 1), x1 = std::clamp(r.maxX() - 1, e_.x, e_.maxX() - 1);
    int64_t y0 = std::clamp(r.y, e_.y, e_.maxY() - 1), y1 = std::clamp(r.maxY() - 1, e_.y, e_.maxY() - 1);
    return {x0, y0, x1 - x0 + 1, y1 - y0 + 1};
  }

  void row(Span& s, TileState& ts) const override {
    if (s.y >= e_.y && s.y < e_.maxY() && s.x >= e_.x && s.x + s.n <= e_.maxX()) return inputs[0]->read(s, ts);
    int64_t lo = e_.x, hi = e_.maxX() - 1;
    Span& t = ts.span(id, 1);
    t.y = std::clamp(s.y, e_.y, e_.maxY() - 1);
    t.x = std::clamp(s.x, lo, hi);
    t.n = int(std::clamp(s.x + s.n - 1, lo, hi) - t.x + 1);
    inputs[0]->read(t, ts);
    for (int i = 0; i < s.n; ++i) {
      int k = int(std::clamp(s.x + i, lo, hi) - t.x);
      s.r[i] = t.r[k];
      s.g[i] = t.g[k];
      s.b[i] = t.b[k];
      s.a[i] = t.a[k];
    }
  }

 private:
  PixelRect e_;
};

// Samples its input through a warp; the input is rendered over the needed rectangle first.
class WarpStage : public OneInputStage {
 public:
  explicit WarpStage(std::shared_ptr<const WarpKernel> kernel) : kernel_(std::move(kernel)) {}

  PixelRect inputRoi(int, const PixelRect& r) const override {
    return PixelRect::covering(kernel_->roi(r.cgRect())).outset(1, 1);
  }
  bool needsPrepare() const override { return true; }
  void prepare(TileState& ts) const override {
    const Stage& input = *inputs[0];
    PixelRect rect = ts.slots[size_t(input.id)].roi.intersect(inputRoi(0, ts.slots[size_t(id)].roi));
    PlanarBuffer& buffer = ts.buffer(id, 0);
    buffer.reset(rect);
    fillFromStage(input, buffer.view(), ts);
  }
  void row(Span& s, TileState& ts) const override {
    const int k = kernel_->samplesPerAxis();
    if (k == 1) {
      sample(s, {0.5, 0.5}, ts);
    } else {
      supersample(s, k, ts);
    }
    if (!spanInside(s, extent)) clipToExtent(s, extent);
  }

 private:
  void sample(Span& s, CGPoint at, TileState& ts) const {
    alignas(64) float sx[kSpan], sy[kSpan];
    kernel_->map(s.x, s.y, s.n, at, sx, sy);
    sampleBilinear(ts.buffer(id, 0).view(), sx, sy, s);
  }

  // The mean of k × k samples on a regular grid inside each pixel.
  void supersample(Span& s, int k, TileState& ts) const {
    Span& sub = ts.span(id, 1);
    sub.x = s.x;
    sub.y = s.y;
    sub.n = s.n;
    s.clear();
    for (int j = 0; j < k; ++j) {
      for (int i = 0; i < k; ++i) {
        sample(sub, {(i + 0.5) / k, (j + 0.5) / k}, ts);
        for (int p = 0; p < s.n; ++p) {
          s.r[p] += sub.r[p];
          s.g[p] += sub.g[p];
          s.b[p] += sub.b[p];
          s.a[p] += sub.a[p];
        }
      }
    }
    const float scale = 1.0f / float(k * k);
    for (int p = 0; p < s.n; ++p) {
      s.r[p] *= scale;
      s.g[p] *= scale;
      s.b[p] *= scale;
      s.a[p] *= scale;
    }
  }

  std::shared_ptr<const WarpKernel> kernel_;
};

// An affine map of the plane, as a warp through the inverse transform.
class AffineWarp final : public WarpKernel {
 public:
  explicit AffineWarp(const CGAffineTransform& t) : t_(t), inv_(CGAffineTransformInvert(t)) {}
  std::string_view name() const override { return "CIAffineTransform"; }
  void map(int64_t x, int64_t y, int n, CGPoint at, float* sx, float* sy) const override {
    double py = double(y) + at.y;
    for (int i = 0; i < n; ++i) {
      double px = double(x + i) + at.x;
      sx[i] = float(inv_.a * px + inv_.c * py + inv_.tx);
      sy[i] = float(inv_.b * px + inv_.d * py + inv_.ty);
    }
  }
  CGRect roi(const CGRect& out) const override { return CGRectApplyAffineTransform(out, inv_); }

 private:
  CGAffineTransform t_, inv_;
};

// A scale along the axes with a translation (placed overlays, enlarged plates), sampled
// bilinearly in two passes: each input row of the tile is first resampled across to the output
// columns, then each output row mixes the two rows around it. An enlargement by k reads every
// input row for k output rows, so most of the work is one mix per pixel. Samples outside the
// input count as transparent, as in the general sampler; results do not depend on the tiling.
class AxisScaleStage final : public WarpStage {
 public:
  explicit AxisScaleStage(const CGAffineTransform& t)
      : WarpStage(std::make_shared<AffineWarp>(t)), inv_(CGAffineTransformInvert(t)) {}

  void prepare(TileState& ts) const override {
    WarpStage::prepare(ts);
    // The second buffer first: adding it may move the first, which the view below points into.
    PlanarBuffer& across = ts.buffer(id, 1);
    const PlanarView& src = ts.buffer(id, 0).view();
    const PixelRect roi = ts.slots[size_t(id)].roi;
    across.reset({roi.x, src.rect.y, roi.w, src.rect.h});
    const PlanarView& rows = across.view();
    std::vector<int64_t> left(size_t(roi.w));
    std::vector<float> weight(size_t(roi.w));
    for (int64_t j = 0; j < roi.w; ++j) {
      const float fx = float(inv_.a * (double(roi.x + j) + 0.5) + inv_.tx) - 0.5f;
      const float x0 = std::isfinite(fx) ? std::floor(fx) : -1e30f;
      left[size_t(j)] = std::isfinite(fx) ? int64_t(std::clamp(x0, -1e15f, 1e15f)) : src.rect.x - 2;
      weight[size_t(j)] = fx - x0;
    }
    for (int64_t y = 0; y < src.rect.h; ++y) {
      for (int c = 0; c < 4; ++c) {
        const float* in = src.row(c, src.rect.y + y);
        float* out = rows.row(c, src.rect.y + y);
        for (int64_t j = 0; j < roi.w; ++j) {
          const int64_t x = left[size_t(j)] - src.rect.x;
          const float a = x >= 0 && x < src.rect.w ? in[x] : 0.0f;
          const float b = x + 1 >= 0 && x + 1 < src.rect.w ? in[x + 1] : 0.0f;
          out[j] = a + (b - a) * weight[size_t(j)];
        }
      }
    }
  }

  void row(Span& s, TileState& ts) const override {
    const PlanarView& rows = ts.buffer(id, 1).view();
    // Spans come from the region the tile was prepared for; any other takes the general sampler.
    if (s.x < rows.rect.x || s.x + s.n > rows.rect.maxX()) return WarpStage::row(s, ts);
    const float fy = float(inv_.d * (double(s.y) + 0.5) + inv_.ty) - 0.5f;
    const float y0 = std::isfinite(fy) ? std::floor(fy) : -1e30f;
    const int64_t top = int64_t(std::clamp(y0, -1e15f, 1e15f));
    const float t = fy - y0;
    const bool hasTop = top >= rows.rect.y && top < rows.rect.maxY();
    const bool hasBottom = top + 1 >= rows.rect.y && top + 1 < rows.rect.maxY();
    float* out[4] = {s.r, s.g, s.b, s.a};
    for (int c = 0; c < 4; ++c) {
      const float* a = hasTop ? rows.row(c, top) + (s.x - rows.rect.x) : nullptr;
      const float* b = hasBottom ? rows.row(c, top + 1) + (s.x - rows.rect.x) : nullptr;
      float* o = out[c];
      if (a && b) {
        for (int i = 0; i < s.n; ++i) o[i] = a[i] + (b[i] - a[i]) * t;
      } else if (a) {
        for (int i = 0; i < s.n; ++i) o[i] = a[i] * (1 - t);
      } else if (b) {
        for (int i = 0; i < s.n; ++i) o[i] = b[i] * t;
      } else {
        std::fill_n(o, s.n, 0.0f);
      }
    }
    if (!spanInside(s, extent)) clipToExtent(s, extent);
  }

 private:
  CGAffineTransform inv_;
};

// A whole-pixel translation needs no resampling: rows are read shifted.
class TranslateStage final : public OneInputStage {
 public:
  TranslateStage(int64_t dx, int64_t dy) : dx_(dx), dy_(dy) {}
  PixelRect inputRoi(int, const PixelRect& r) const override { return {r.x - dx_, r.y - dy_, r.w, r.h}; }
  void row(Span& s, TileState& ts) const override {
    s.x -= dx_;
    s.y -= dy_;
    inputs[0]->read(s, ts);
    s.x += dx_;
    s.y += dy_;
  }

 private:
  int64_t dx_, dy_;
};

// A transform that shrinks by more than 2x. The input is first averaged over blocks of kx × ky
// pixels that are fixed in the plane, and the reduced copy is then sampled bilinearly, so fine
// detail does not alias and the result does not depend on the tiling.
class ReducedAffineStage final : public OneInputStage {
 public:
  ReducedAffineStage(const CGAffineTransform& t, int64_t kx, int64_t ky)
      : inv_(CGAffineTransformInvert(t)), kx_(kx), ky_(ky) {}

  PixelRect inputRoi(int, const PixelRect& r) const override {
    PixelRect reduced = reducedRoi(r);
    return {reduced.x * kx_, reduced.y * ky_, reduced.w * kx_, reduced.h * ky_};
  }
  bool needsPrepare() const override { return true; }
  void prepare(TileState& ts) const override {
    const Stage& input = *inputs[0];
    const PixelRect roi = ts.slots[size_t(id)].roi;
    PlanarBuffer& buffer = ts.buffer(id, 0);
    buffer.reset(reducedRoi(roi));
    const PlanarView& view = buffer.view();
    for (int c = 0; c < 4; ++c) std::fill_n(view.plane[c], view.stride * size_t(view.rect.h), 0.0f);
    const PixelRect rows = inputRoi(0, roi).intersect(ts.slots[size_t(input.id)].roi);
    forEachSpan(rows, ts.span(id, 1), [&](Span& s) {
      input.read(s, ts);
      addToReducedRow(s, kx_, floorDiv(s.y, ky_), view);
    });
    const float scale = 1.0f / float(kx_ * ky_);
    for (int c = 0; c < 4; ++c) {
      float* p = view.plane[c];
      for (size_t i = 0, n = view.stride * size_t(view.rect.h); i < n; ++i) p[i] *= scale;
    }
  }
  void row(Span& s, TileState& ts) const override {
    alignas(64) float sx[kSpan], sy[kSpan];
    const double py = double(s.y) + 0.5;
    for (int i = 0; i < s.n; ++i) {
      double px = double(s.x + i) + 0.5;
      sx[i] = float((inv_.a * px + inv_.c * py + inv_.tx) / double(kx_));
      sy[i] = float((inv_.b * px + inv_.d * py + inv_.ty) / double(ky_));
    }
    sampleBilinear(ts.buffer(id, 0).view(), sx, sy, s);
    if (!spanInside(s, extent)) clipToExtent(s, extent);
  }

 private:
  // The reduced pixels that output rectangle r samples, with the bilinear margin.
  PixelRect reducedRoi(const PixelRect& r) const {
    if (r.empty()) return {};
    CGRect source = CGRectApplyAffineTransform(r.cgRect(), inv_);
    CGRect reduced = CGRectMake(source.origin.x / double(kx_), source.origin.y / double(ky_),
                                source.size.width / double(kx_), source.size.height / double(ky_));
    return PixelRect::covering(reduced).outset(1, 1);
  }

  CGAffineTransform inv_;
  int64_t kx_, ky_;
};

class RegionStage final : public Stage {
 public:
  RegionStage(std::shared_ptr<const RegionKernel> kernel, const RenderEnv& env)
      : kernel_(std::move(kernel)), env_(env) {}

  PixelRect inputRoi(int i, const PixelRect& r) const override { return kernel_->roi(i, r); }
  size_t maxInputs() const override { return kMaxInputs; }
  bool needsPrepare() const override { return true; }
  void prepare(TileState& ts) const override {
    const PixelRect roi = ts.slots[size_t(id)].roi;
    const PlanarView* views[kMaxInputs] = {};
    const size_t count = inputs.size();
    for (size_t k = 0; k < count; ++k) {
      PlanarBuffer& buffer = ts.buffer(id, k + 1);
      buffer.reset(kernel_->roi(int(k), roi));
      fillFromStage(*inputs[k], buffer.view(), ts);
      views[k] = &buffer.view();
    }
    PlanarBuffer& out = ts.buffer(id, 0);
    out.reset(roi);
    kernel_->apply(std::span<const PlanarView* const>(views, count), out.view(), env_);
  }
  void row(Span& s, TileState& ts) const override { ts.buffer(id, 0).view().read(s); }

 private:
  static constexpr size_t kMaxInputs = 8;
  std::shared_ptr<const RegionKernel> kernel_;
  RenderEnv env_;
};

class WholeImageStage final : public Stage {
 public:
  explicit WholeImageStage(std::shared_ptr<const WholeImageKernel> kernel) : kernel_(std::move(kernel)) {}
  PixelRect inputRoi(int i, const PixelRect& r) const override { return kernel_->roi(i, r); }
  bool isWholeImage() const override { return true; }
  void row(Span& s, TileState&) const override {
    if (rows_) {
      rows_->read(s);
    } else {
      s.clear();
    }
  }

  std::shared_ptr<const WholeImageKernel> kernel_;
  std::shared_ptr<const RowSource> rows_;
};

}  // namespace

std::unique_ptr<Stage> makeEmptyStage() { return std::make_unique<EmptyStage>(); }
std::unique_ptr<Stage> makeColorStage(const std::array<float, 4>& pixel) { return std::make_unique<ColorStage>(pixel); }
std::unique_ptr<Stage> makePointStage(std::shared_ptr<const PointKernel> kernel, const RenderEnv& env) {
  return std::make_unique<PointStage>(std::move(kernel), env);
}
std::unique_ptr<Stage> makeWarpStage(std::shared_ptr<const WarpKernel> kernel) {
  return std::make_unique<WarpStage>(std::move(kernel));
}
std::unique_ptr<Stage> makeTransformStage(const CGAffineTransform& t) {
  if (t.a == 1 && t.b == 0 && t.c == 0 && t.d == 1 && t.tx == std::round(t.tx) && t.ty == std::round(t.ty) &&
      std::abs(t.tx) < 1e15 && std::abs(t.ty) < 1e15)
    return std::make_unique<TranslateStage>(int64_t(t.tx), int64_t(t.ty));
  // How far the source point moves along each source axis when the output point moves by one pixel.
  CGAffineTransform inv = CGAffineTransformInvert(t);
  double fx = std::hypot(inv.a, inv.c), fy = std::hypot(inv.b, inv.d);
  if (fx > 2 || fy > 2) {
    auto factor = [](double f) { return int64_t(std::clamp(std::floor(f), 1.0, 65536.0)); };
    return std::make_unique<ReducedAffineStage>(t, factor(fx), factor(fy));
  }
  if (t.b == 0 && t.c == 0) return std::make_unique<AxisScaleStage>(t);
  return std::make_unique<WarpStage>(std::make_shared<AffineWarp>(t));
}
std::unique_ptr<Stage> makeCropStage(const CGRect& rect) { return std::make_unique<CropStage>(rect); }
std::unique_ptr<Stage> makeClampStage(const CGRect& extent) { return std::make_unique<ClampStage>(extent); }
std::unique_ptr<Stage> makeRegionStage(std::shared_ptr<const RegionKernel> kernel, const RenderEnv& env) {
  return std::make_unique<RegionStage>(std::move(kernel), env);
}
std::unique_ptr<Stage> makeWholeImageStage(std::shared_ptr<const WholeImageKernel> kernel) {
  return std::make_unique<WholeImageStage>(std::move(kernel));
}
void setWholeImageResult(Stage& stage, std::shared_ptr<const RowSource> rows) {
  BV_CHECK(stage.isWholeImage());
  static_cast<WholeImageStage&>(stage).rows_ = std::move(rows);
}
const WholeImageKernel& wholeImageKernel(const Stage& stage) {
  BV_CHECK(stage.isWholeImage());
  return *static_cast<const WholeImageStage&>(stage).kernel_;
}

}  // namespace brenvia::ci
