#include "platform/coreimage/ops/op_support.h"

#include <cmath>
#include <vector>

namespace brenvia::ci {
namespace {

// The average of bilinear samples on the segment from the pixel towards the centre whose length is
// the amount (a fraction A) of the distance: N = max(2, ⌈A·|c − p|⌉ + 1) evenly spaced samples,
// the first at the pixel itself.
class ZoomBlurKernel final : public RegionKernel {
 public:
  ZoomBlurKernel(CGPoint center, double fraction) : c_(center), a_(fraction) {}
  std::string_view name() const override { return "CIZoomBlur"; }

  // The rectangle united with its image shrunk towards the centre, plus the bilinear margin.
  PixelRect roi(int, const PixelRect& out) const override {
    if (out.empty()) return {};
    const double k = 1 - a_;
    CGRect shrunk = CGRectMake(c_.x + (double(out.x) - c_.x) * k, c_.y + (double(out.y) - c_.y) * k, double(out.w) * k,
                               double(out.h) * k);
    return PixelRect::covering(CGRectUnion(out.cgRect(), shrunk)).outset(1, 1);
  }

  void apply(std::span<const PlanarView* const> inputs, const PlanarView& out, const RenderEnv&) const override {
    const PlanarView& in = *inputs[0];
    const PixelRect& r = out.rect;
    // An interleaved copy puts the four channels of a pixel in one vector.
    thread_local std::vector<Pixel> pixels;
    const int64_t iw = in.rect.w, ih = in.rect.h;
    pixels.resize(size_t(iw * ih));
    for (int64_t y = 0; y < ih; ++y) {
      const float* src[4] = {in.row(0, in.rect.y + y), in.row(1, in.rect.y + y), in.row(2, in.rect.y + y),
                             in.row(3, in.rect.y + y)};
      Pixel* dst = pixels.data() + size_t(y * iw);
      for (int64_t x = 0; x < iw; ++x) dst[x] = Pixel{src[0][x], src[1][x], src[2][x], src[3][x]};
    }
    for (int64_t y = r.y; y < r.maxY(); ++y) {
      float* dst[4] = {out.row(0, y), out.row(1, y), out.row(2, y), out.row(3, y)};
      const double py = double(y) + 0.5;
      for (int64_t x = r.x; x < r.maxX(); ++x) {
        const double px = double(x) + 0.5, dx = c_.x - px, dy = c_.y - py;
        const int64_t n = std::max<int64_t>(2, int64_t(std::ceil(a_ * std::hypot(dx, dy))) + 1);
        const double sx = dx * a_ / double(n - 1), sy = dy * a_ / double(n - 1);
        // Sample positions relative to the first pixel centre of the copy.
        const double fx = px - 0.5 - double(in.rect.x), fy = py - 0.5 - double(in.rect.y);
        const double lastX = fx + sx * double(n - 1), lastY = fy + sy * double(n - 1);
        const bool inside = std::min(fx, lastX) >= 0 && std::min(fy, lastY) >= 0 &&
                            std::max(fx, lastX) < double(iw - 1) && std::max(fy, lastY) < double(ih - 1);
        Pixel acc{0, 0, 0, 0};
        for (int64_t k = 0; k < n; ++k) {
          const double qx = fx + sx * double(k), qy = fy + sy * double(k);
          if (inside) {
            const double x0 = std::floor(qx), y0 = std::floor(qy);
            const float tx = float(qx - x0), ty = float(qy - y0);
            const Pixel* p = pixels.data() + size_t(int64_t(y0) * iw + int64_t(x0));
            acc += (p[0] * (1 - tx) + p[1] * tx) * (1 - ty) + (p[iw] * (1 - tx) + p[iw + 1] * tx) * ty;
          } else {
            addSample(in, qx + double(in.rect.x) + 0.5, qy + double(in.rect.y) + 0.5, acc);
          }
        }
        const size_t i = size_t(x - r.x);
        const float scale = 1.0f / float(n);
        for (int ch = 0; ch < 4; ++ch) dst[ch][i] = acc[ch] * scale;
      }
    }
  }

 private:
  using Pixel = float __attribute__((vector_size(16)));

  // The bilinear sample at plane point (qx, qy); pixels outside the input view read as 0.
  static void addSample(const PlanarView& in, double qx, double qy, Pixel& acc) {
    const double fx = qx - 0.5, fy = qy - 0.5;
    const double x0 = std::floor(fx), y0 = std::floor(fy);
    const float tx = float(fx - x0), ty = float(fy - y0);
    const int64_t ix = int64_t(x0), iy = int64_t(y0);
    const float w[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
    for (int k = 0; k < 4; ++k) {
      const int64_t sx = ix + (k & 1), sy = iy + (k >> 1);
      if (w[k] == 0 || sx < in.rect.x || sy < in.rect.y || sx >= in.rect.maxX() || sy >= in.rect.maxY()) continue;
      const size_t at = size_t(sy - in.rect.y) * in.stride + size_t(sx - in.rect.x);
      for (int ch = 0; ch < 4; ++ch) acc[ch] += w[k] * in.plane[ch][at];
    }
  }

  CGPoint c_;
  double a_;
};

}  // namespace

void registerZoomBlur() {
  CIFilter::registerOperation(
      "CIZoomBlur",
      {"Zoom Blur",
       builtinCategories({kCICategoryBlur}),
       {imageInput(), vectorInput("inputCenter", {150, 150}), numberInput("inputAmount", 20.0)}},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const double amount = f.number("inputAmount");
        const CGPoint center = f.vector("inputCenter").CGPointValue();
        if (!std::isfinite(amount) || !std::isfinite(center.x) || !std::isfinite(center.y)) return input;
        const double fraction = std::clamp(amount, 0.0, 99.0) / 100;
        if (fraction == 0) return input;
        // Points up to 1 / (1 − A) times as far from the centre still reach the picture.
        CGRect extent = input->extent();
        if (!CGRectIsInfinite(extent)) {
          const double k = 1 / (1 - fraction);
          extent = CGRectMake(center.x + (extent.origin.x - center.x) * k, center.y + (extent.origin.y - center.y) * k,
                              extent.size.width * k, extent.size.height * k);
        }
        return CIImage::makeRegion(std::make_shared<ZoomBlurKernel>(center, fraction), {input}, extent);
      });
}

}  // namespace brenvia::ci
