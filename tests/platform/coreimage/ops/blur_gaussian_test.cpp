#include "blur_and_geometry_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

using test::Pixel;
using test::Plane;

CIImageRef blur(const CIImageRef& image, double sigma) {
  return image->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", sigma}});
}

// What an 8-bit sRGB output would hold before rounding, in levels: colour encoded unpremultiplied.
Pixel levels(const Pixel& p) {
  auto encode = [](double l) { return l <= 0.0031308 ? 12.92 * l : 1.055 * std::pow(l, 1 / 2.4) - 0.055; };
  double a = std::clamp(p[3], 0.0, 1.0);
  Pixel out{0, 0, 0, 255 * a};
  for (size_t c = 0; c < 3 && a > 0; ++c) out[c] = 255 * a * encode(std::clamp(p[c] / a, 0.0, 1.0));
  return out;
}

TEST(CIGaussianBlur, ExtentGrowsByThreeSigma) {
  auto image = test::floatImage(100, 100, [](int, int) { return Pixel{1, 1, 1, 1}; });
  auto extent = blur(image, 10)->extent();
  EXPECT_TRUE(CGRectEqualToRect(extent, CGRectMake(-30, -30, 160, 160))) << NSStringFromCGRect(extent);
  EXPECT_TRUE(CGRectEqualToRect(blur(image, 2.2)->extent(), CGRectMake(-7, -7, 114, 114)));
  EXPECT_TRUE(CGRectIsInfinite(blur(image->imageByClampingToExtent(), 5)->extent()));
  // Below 0.1 nothing happens at all.
  EXPECT_EQ(blur(image, 0.05), image);
  EXPECT_EQ(blur(image, -3), image);
}

// Small sigmas convolve directly: the result is the formula, for any alpha and out-of-range values.
TEST(CIGaussianBlur, SmallSigmaIsTheTruncatedGaussian) {
  auto image = test::floatImage(23, 17, [](int x, int y) {
    double a = (x + y) % 3 == 0 ? 0.0 : (x * 7 + y) % 5 == 0 ? 1.0 : 0.4;
    return Pixel{a * ((x * 13 + y * 5) % 11) / 10.0, x == 5 ? 2.5 : 0.2 * a, y == 8 ? -0.5 : 0.7 * a, a};
  });
  for (double sigma : {0.6, 3.0}) {
    Plane expected = test::convolve(Plane::of(test::render(image, image->extent())), test::gaussianWindow(sigma));
    test::expectPixels(
        blur(image, sigma), [&](int x, int y) { return expected.at(x, y); }, 2e-6, "sigma " + std::to_string(sigma));
  }
}

// Larger sigmas use the sliding method: within half a level of the exact result on 8-bit sRGB
// output, where dark values are most sensitive, on noise and on hard edges.
TEST(CIGaussianBlur, LargeSigmaMatchesTheDirectConvolution) {
  const CIImageRef pictures[] = {
      test::noiseImage(64, 48),
      // Black and white halves, opaque, on a transparent surround.
      test::floatImage(64, 64, [](int x, int) { return x < 32 ? Pixel{0, 0, 0, 1} : Pixel{1, 1, 1, 1}; }),
  };
  for (const auto& image : pictures) {
    Plane source = Plane::of(test::render(image, image->extent()));
    for (double sigma : {3.2, 30.0}) {
      Plane expected = test::convolve(source, test::gaussianWindow(sigma));
      auto out = test::render(blur(image, sigma), test::rectOf(expected));
      double worst = 0;
      for (int y = expected.y0; y < expected.y0 + expected.h; ++y) {
        for (int x = expected.x0; x < expected.x0 + expected.w; ++x) {
          Pixel a = levels(out.at(x, y)), b = levels(expected.at(x, y));
          for (size_t c = 0; c < 4; ++c) worst = std::max(worst, std::abs(a[c] - b[c]));
        }
      }
      EXPECT_LT(worst, 0.5) << "sigma " << sigma;
    }
  }
}

// A window far wider than the picture spreads it to nearly nothing, at the cost of the picture's
// rows rather than the window's (this render took minutes when every row of the window was filtered).
TEST(CIGaussianBlur, WindowsFarWiderThanThePictureStayCheap) {
  auto image = test::floatImage(8, 8, [](int, int) { return Pixel{1, 1, 1, 1}; });
  auto out = test::render(blur(image, 20000), CGRectMake(0, 0, 8, 8));
  for (int c = 0; c < 4; ++c) EXPECT_NEAR(out.at(4, 4)[size_t(c)], 64 / (2 * M_PI * 20000.0 * 20000.0), 1e-7);
}

// Radii no picture needs are bounded by what the picture can show: a blur of a billion pixels takes
// the memory and time of a far smaller one and still spreads the picture to nearly nothing.
TEST(CIGaussianBlur, HugeRadiiTakeBoundedMemory) {
  auto image = test::floatImage(400, 250, [](int, int) { return Pixel{1, 1, 1, 1}; });
  auto out = test::render(blur(image, 1e9), CGRectMake(0, 0, 400, 250));
  for (int c = 0; c < 4; ++c) EXPECT_LT(out.at(200, 125)[size_t(c)], 1e-3);
}

TEST(CIGaussianBlur, SameBitsForAnyThreadCountAndTileSize) {
  for (double sigma : {2.0, 12.0})
    test::expectTileIndependent(blur(test::noiseImage(300, 220, 3), sigma), {{2, 512}, {1, 200}, {2, 200}});
}

// A picture clamped to infinity blurs into copies of its own edges, which therefore do not darken.
TEST(CIGaussianBlur, ClampedImageKeepsItsEdges) {
  auto grey = test::floatImage(40, 30, [](int, int) { return Pixel{0.5, 0.25, 0.75, 1}; });
  auto blurred = blur(grey->imageByClampingToExtent(), 20)->imageByCroppingToRect(grey->extent());
  auto out = test::render(blurred, grey->extent());
  for (auto [x, y] : {std::pair{0, 0}, std::pair{39, 29}, std::pair{20, 15}})
    for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(out.at(x, y)[c], (Pixel{0.5, 0.25, 0.75, 1})[c], 1e-3) << x << "," << y;
}

}  // namespace
}  // namespace brenvia
