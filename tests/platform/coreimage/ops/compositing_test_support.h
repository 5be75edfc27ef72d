#pragma once

#include "platform/coreimage/ci_color.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

// Exact pixel input and readback for the compositing, blend and gradient tests.
namespace brenvia::test {

using Pixel = std::array<float, 4>;

// An untagged premultiplied float image with extent (x, y, w, h); fn(i, j) gives the pixel at
// column i and plane row j (row 0 at the bottom).
template <class F>
CIImageRef floatImage(size_t w, size_t h, F fn, double x = 0, double y = 0) {
  auto bitmap = CGImage::allocate(w, h, CGPixelFormat::RGBAFloatPremultiplied, CGColorSpaceRef());
  for (size_t j = 0; j < h; ++j) {
    auto* row = reinterpret_cast<float*>(bitmap->mutableRow(h - 1 - j));
    for (size_t i = 0; i < w; ++i) {
      Pixel p = fn(i, j);
      std::memcpy(row + 4 * i, p.data(), sizeof p);
    }
  }
  auto image = CIImage::imageWithCGImage(bitmap);
  return x == 0 && y == 0 ? image : image->imageByApplyingTransform(CGAffineTransformMakeTranslation(x, y));
}

// One premultiplied colour over a rectangle (in an unmanaged context the values pass unchanged).
inline CIImageRef solid(Pixel p, const CGRect& rect) {
  float a = p[3];
  CIColor c = a > 0 ? CIColor(p[0] / a, p[1] / a, p[2] / a, a) : CIColor(0, 0, 0, 0);
  return CIImage::imageWithColor(c)->imageByCroppingToRect(rect);
}

// A rendered rectangle, read by plane coordinates.
class Rendered {
 public:
  Rendered(const CIImageRef& image, const CGRect& rect, const CIContextOptions& options = unmanaged())
      : rect_(rect), values_(renderFloat(image, rect, options)) {}
  Pixel at(double x, double y) const {
    size_t col = size_t(x - rect_.origin.x), row = size_t(CGRectGetMaxY(rect_) - 1 - y);
    const float* p = values_.data() + 4 * (row * size_t(rect_.size.width) + col);
    return {p[0], p[1], p[2], p[3]};
  }

 private:
  CGRect rect_;
  std::vector<float> values_;
};

// Renders w × h pixels from the origin and compares channel c of pixel (i, j) with want(i, j, c),
// within the tolerance, or within the tolerance times the value where `relative` and it exceeds 1.
template <class F>
void expectEachPixel(const CIImageRef& image, size_t w, size_t h, F want, double tolerance, bool relative = false) {
  Rendered out(image, CGRectMake(0, 0, double(w), double(h)));
  for (size_t j = 0; j < h; ++j)
    for (size_t i = 0; i < w; ++i)
      for (size_t c = 0; c < 4; ++c) {
        double expected = want(i, j, c), scale = relative ? std::max(1.0, std::abs(expected)) : 1.0;
        ASSERT_NEAR(out.at(double(i), double(j))[c], expected, tolerance * scale)
            << "pixel " << i << "," << j << " channel " << c;
      }
}

}  // namespace brenvia::test
