#pragma once

// Float test pictures in plane coordinates and a double-precision reference convolution, shared by
// the geometry, blur and sharpening tests.
#include "test_support.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

namespace brenvia::test {

using Pixel = std::array<double, 4>;

// An untagged premultiplied float picture of w × h pixels; fn(x, y) gives pixel (x, y) of the
// plane (y up, so the first bitmap row is y = h − 1). Values are stored as given, out of range too.
inline CIImageRef floatImage(size_t w, size_t h, const std::function<Pixel(int, int)>& fn) {
  auto bitmap = CGImage::allocate(w, h, CGPixelFormat::RGBAFloatPremultiplied, CGColorSpaceRef());
  for (size_t row = 0; row < h; ++row) {
    auto* p = reinterpret_cast<float*>(bitmap->mutableRow(row));
    for (size_t x = 0; x < w; ++x) {
      Pixel v = fn(int(x), int(h - 1 - row));
      for (size_t c = 0; c < 4; ++c) p[4 * x + c] = float(v[c]);
    }
  }
  return CIImage::imageWithCGImage(bitmap);
}

// Each pixel holds its own centre: (x + 0.5, y + 0.5, 0, 1). Bilinear reads of it give the point read.
inline CIImageRef coordinateImage(size_t w, size_t h) {
  return floatImage(w, h, [](int x, int y) { return Pixel{x + 0.5, y + 0.5, 0, 1}; });
}

// Random premultiplied pixels: alpha in [0, 1] with some exactly 0 and 1, colour up to alpha.
inline CIImageRef noiseImage(size_t w, size_t h, unsigned seed = 7) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<Pixel> pixels(w * h);
  for (auto& p : pixels) {
    double a = u(rng);
    a = a < 0.1 ? 0 : a > 0.8 ? 1 : a;
    p = {u(rng) * a, u(rng) * a, u(rng) * a, a};
  }
  return floatImage(w, h, [&](int x, int y) { return pixels[size_t(y) * w + size_t(x)]; });
}

// A rendered rectangle of float pixels, addressed in plane coordinates.
struct Rendered {
  CGRect rect;
  std::vector<float> data;

  Pixel at(int x, int y) const {
    size_t row = size_t(rect.origin.y + rect.size.height - 1 - y), col = size_t(x - rect.origin.x);
    const float* p = &data[(row * size_t(rect.size.width) + col) * 4];
    return {p[0], p[1], p[2], p[3]};
  }
};

inline Rendered render(const CIImageRef& image, const CGRect& rect, CIContextOptions options = unmanaged()) {
  return {rect, renderFloat(image, rect, options)};
}

// A picture held in doubles, transparent outside its rectangle.
struct Plane {
  int x0 = 0, y0 = 0, w = 0, h = 0;
  std::vector<Pixel> pixels;

  Pixel at(int x, int y) const {
    if (x < x0 || y < y0 || x >= x0 + w || y >= y0 + h) return {0, 0, 0, 0};
    return pixels[size_t(y - y0) * size_t(w) + size_t(x - x0)];
  }
  static Plane of(const Rendered& r) {
    Plane p{int(r.rect.origin.x), int(r.rect.origin.y), int(r.rect.size.width), int(r.rect.size.height), {}};
    for (int y = p.y0; y < p.y0 + p.h; ++y)
      for (int x = p.x0; x < p.x0 + p.w; ++x) p.pixels.push_back(r.at(x, y));
    return p;
  }
};

// Bilinear interpolation of the four pixel centres around (x, y).
inline Pixel sample(const Plane& p, double x, double y) {
  double fx = x - 0.5, fy = y - 0.5, x0 = std::floor(fx), y0 = std::floor(fy), tx = fx - x0, ty = fy - y0;
  Pixel out{};
  const double w[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
  for (int k = 0; k < 4; ++k) {
    Pixel v = p.at(int(x0) + (k & 1), int(y0) + (k >> 1));
    for (size_t c = 0; c < 4; ++c) out[c] += w[k] * v[c];
  }
  return out;
}

// Separable convolution with a symmetric window (entry i + n for offset i), rows then columns,
// over the source grown by n on every side.
inline Plane convolve(const Plane& src, const std::vector<double>& window) {
  const int n = int(window.size() / 2);
  Plane rows{src.x0 - n, src.y0, src.w + 2 * n, src.h, {}};
  for (int y = rows.y0; y < rows.y0 + rows.h; ++y) {
    for (int x = rows.x0; x < rows.x0 + rows.w; ++x) {
      Pixel sum{};
      for (int i = -n; i <= n; ++i) {
        Pixel v = src.at(x + i, y);
        for (int c = 0; c < 4; ++c) sum[size_t(c)] += window[size_t(i + n)] * v[size_t(c)];
      }
      rows.pixels.push_back(sum);
    }
  }
  Plane out{rows.x0, src.y0 - n, rows.w, src.h + 2 * n, {}};
  for (int y = out.y0; y < out.y0 + out.h; ++y) {
    for (int x = out.x0; x < out.x0 + out.w; ++x) {
      Pixel sum{};
      for (int i = -n; i <= n; ++i) {
        Pixel v = rows.at(x, y + i);
        for (int c = 0; c < 4; ++c) sum[size_t(c)] += window[size_t(i + n)] * v[size_t(c)];
      }
      out.pixels.push_back(sum);
    }
  }
  return out;
}

// The truncated, normalised Gaussian window of standard deviation sigma: offsets up to ⌈3σ⌉.
inline std::vector<double> gaussianWindow(double sigma) {
  const int n = int(std::ceil(3 * sigma));
  std::vector<double> w;
  double sum = 0;
  for (int i = -n; i <= n; ++i) sum += w.emplace_back(std::exp(-double(i * i) / (2 * sigma * sigma)));
  for (double& v : w) v /= sum;
  return w;
}

inline CGRect rectOf(const Plane& p) { return CGRectMake(p.x0, p.y0, p.w, p.h); }

// Renders the pixels `image`'s (finite) extent touches and compares each with expected(x, y).
inline void expectPixels(const CIImageRef& image, const std::function<Pixel(int, int)>& expected, double tolerance,
                         const std::string& what) {
  const CGRect rect = CGRectIntegral(image->extent());
  auto out = render(image, rect);
  for (int y = int(rect.origin.y); y < int(CGRectGetMaxY(rect)); ++y) {
    for (int x = int(rect.origin.x); x < int(CGRectGetMaxX(rect)); ++x) {
      Pixel want = expected(x, y), got = out.at(x, y);
      for (size_t c = 0; c < 4; ++c)
        ASSERT_NEAR(got[c], want[c], tolerance) << what << " at " << x << "," << y << " channel " << c;
    }
  }
}

// One thread with tiles of 512 against each (threads, tile size) pair, bit for bit.
inline void expectTileIndependent(const CIImageRef& image,
                                  std::initializer_list<std::pair<int, int>> setups = {{2, 37}}) {
  auto with = [&](int threads, int tile) {
    CIContextOptions o = unmanaged();
    o.tileSize = tile;
    o.threads = threads;
    return renderFloat(image, CGRectIntegral(image->extent()), o);
  };
  auto reference = with(1, 512);
  for (auto [threads, tile] : setups) {
    auto other = with(threads, tile);
    EXPECT_EQ(std::memcmp(reference.data(), other.data(), reference.size() * sizeof(float)), 0)
        << threads << " threads, tiles of " << tile;
  }
}

}  // namespace brenvia::test
