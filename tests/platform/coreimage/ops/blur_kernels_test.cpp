#include "blur_and_geometry_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

using test::Pixel;
using test::Plane;

// Premultiplied pixels with alpha 0, partial and 1, and colour values outside [0, 1].
CIImageRef mixedImage(size_t w, size_t h) {
  return test::floatImage(w, h, [](int x, int y) {
    double a = (x + 2 * y) % 5 == 0 ? 0.0 : (x * 3 + y) % 4 == 0 ? 1.0 : 0.35;
    return Pixel{a * ((x * 7 + y * 3) % 10) / 9.0, x % 6 == 2 ? 1.8 : 0.3 * a, y % 7 == 3 ? -0.4 : 0.6 * a, a};
  });
}

Plane planeOf(const CIImageRef& image) { return Plane::of(test::render(image, image->extent())); }

TEST(BlurGeometryAndSharpenOperations, MissingImage) {
  for (auto name : {"CIGaussianBlur", "CIBoxBlur", "CIDiscBlur", "CIMotionBlur", "CIZoomBlur", "CIConvolution3X3",
                    "CIAffineTransform", "CICrop", "CIAffineClamp", "CIStraightenFilter", "CIPerspectiveTransform",
                    "CIPerspectiveCorrection", "CIUnsharpMask", "CISharpenLuminance"}) {
    EXPECT_EQ(CIFilter::filterWithName(name)->outputImage(), nullptr) << name;
  }
}

TEST(CIBoxBlur, SeparableBoxWithFractionalEnds) {
  auto image = mixedImage(29, 23);
  const Plane source = planeOf(image);
  for (double r : {2.5, 40.3}) {
    const int k = int(std::floor(r)), reach = int(std::ceil(r));
    std::vector<double> window(size_t(2 * reach + 1), 1.0);
    if (reach > k) window.front() = window.back() = r - k;
    for (double& v : window) v /= 2 * k + 1 + 2 * (r - k);
    auto blurred = image->imageByApplyingFilter("CIBoxBlur", {{"inputRadius", r}});
    ASSERT_TRUE(CGRectEqualToRect(blurred->extent(), CGRectInset(image->extent(), -reach, -reach)));
    const Plane expected = test::convolve(source, window);
    test::expectPixels(blurred, [&](int x, int y) { return expected.at(x, y); }, 2e-5, "radius " + std::to_string(r));
  }
  // Radii below the minimum of 1 count as 1.
  auto a = test::render(image->imageByApplyingFilter("CIBoxBlur", {{"inputRadius", 0.2}}), image->extent());
  auto b = test::render(image->imageByApplyingFilter("CIBoxBlur", {{"inputRadius", 1.0}}), image->extent());
  EXPECT_EQ(a.data, b.data);
  test::expectTileIndependent(test::noiseImage(150, 90)->imageByApplyingFilter("CIBoxBlur", {{"inputRadius", 33.5}}));
}

TEST(CIDiscBlur, AntiAliasedDisc) {
  auto image = mixedImage(21, 17);
  const Plane source = planeOf(image);
  for (double r : {0.3, 32.5}) {
    const int reach = int(std::ceil(r));
    double total = 0;
    std::vector<double> weights;
    for (int dy = -reach; dy <= reach; ++dy)
      for (int dx = -reach; dx <= reach; ++dx)
        total += weights.emplace_back(std::clamp(r + 0.5 - std::hypot(dx, dy), 0.0, 1.0));
    auto blurred = image->imageByApplyingFilter("CIDiscBlur", {{"inputRadius", r}});
    ASSERT_TRUE(CGRectEqualToRect(blurred->extent(), CGRectInset(image->extent(), -reach, -reach)));
    test::expectPixels(
        blurred,
        [&](int x, int y) {
          Pixel sum{};
          size_t i = 0;
          for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx, ++i) {
              Pixel v = source.at(x + dx, y + dy);
              for (size_t c = 0; c < 4; ++c) sum[c] += weights[i] / total * v[c];
            }
          }
          return sum;
        },
        2e-5, "radius " + std::to_string(r));
  }
  EXPECT_EQ(image->imageByApplyingFilter("CIDiscBlur", {{"inputRadius", 0.0}}), image);
}

TEST(CIMotionBlur, AveragesSamplesAlongTheLine) {
  auto image = mixedImage(25, 19);
  const Plane source = planeOf(image);
  for (auto [r, angle] : {std::pair{3.3, 0.7}, std::pair{0.4, 2.0}}) {
    const int n = std::max(1, int(std::ceil(2 * r)) + 1);
    auto blurred = image->imageByApplyingFilter("CIMotionBlur", {{"inputRadius", r}, {"inputAngle", angle}});
    const double dx = std::ceil(r * std::abs(std::cos(angle)) - 1e-9);
    const double dy = std::ceil(r * std::abs(std::sin(angle)) - 1e-9);
    ASSERT_TRUE(CGRectEqualToRect(blurred->extent(), CGRectInset(image->extent(), -dx, -dy)))
        << NSStringFromCGRect(blurred->extent());
    test::expectPixels(
        blurred,
        [&](int x, int y) {
          Pixel sum{};
          for (int k = 0; k < n; ++k) {
            double t = n == 1 ? 0 : -r + 2 * r * k / (n - 1);
            Pixel v = test::sample(source, x + 0.5 + t * std::cos(angle), y + 0.5 + t * std::sin(angle));
            for (size_t c = 0; c < 4; ++c) sum[c] += v[c] / n;
          }
          return sum;
        },
        2e-5, "radius " + std::to_string(r));
  }
  EXPECT_EQ(image->imageByApplyingFilter("CIMotionBlur", {{"inputRadius", 0.0}}), image);
}

TEST(CIZoomBlur, AveragesTowardsTheCentre) {
  auto image = mixedImage(30, 24);
  const Plane source = planeOf(image);
  for (auto [center, amount] : {std::pair{CGPoint{40.5, -6}, 35.0}, std::pair{CGPoint{15, 12}, 250.0}}) {
    const double a = std::min(amount, 99.0) / 100;
    auto blurred = image->imageByApplyingFilter("CIZoomBlur", {{"inputCenter", CIVector{center.x, center.y}},
                                                               {"inputAmount", amount}});
    const double k = 1 / (1 - a);
    CGRect extent = CGRectMake(center.x - center.x * k, center.y - center.y * k, 30 * k, 24 * k);
    ASSERT_NEAR(CGRectGetMinX(blurred->extent()), CGRectGetMinX(extent), 1e-9);
    ASSERT_NEAR(CGRectGetMaxY(blurred->extent()), CGRectGetMaxY(extent), 1e-9);
    // The picture and a ring around it are enough to check the formula.
    test::expectPixels(
        blurred->imageByCroppingToRect(CGRectMake(-6, -6, 42, 36)),
        [&](int x, int y) {
          double px = x + 0.5, py = y + 0.5, ddx = center.x - px, ddy = center.y - py;
          int n = std::max(2, int(std::ceil(a * std::hypot(ddx, ddy))) + 1);
          Pixel sum{};
          for (int i = 0; i < n; ++i) {
            Pixel v = test::sample(source, px + ddx * a * i / (n - 1), py + ddy * a * i / (n - 1));
            for (size_t c = 0; c < 4; ++c) sum[c] += v[c] / n;
          }
          return sum;
        },
        2e-5, "amount " + std::to_string(amount));
  }
  EXPECT_EQ(image->imageByApplyingFilter("CIZoomBlur", {{"inputAmount", -5.0}}), image);
}

TEST(CIConvolution3X3, WeightsRowsFromTheTopAndClamps) {
  auto image = mixedImage(12, 10);
  const Plane source = planeOf(image);
  const std::array<double, 9> w{0.5, -1, 0.25, 2, 1.5, 0, -0.3, 0.1, 0.8};
  const double bias = 0.05;
  CIVector weights(std::vector<double>(w.begin(), w.end()));
  auto out = image->imageByApplyingFilter("CIConvolution3X3", {{"inputWeights", weights}, {"inputBias", bias}});
  ASSERT_TRUE(CGRectEqualToRect(out->extent(), CGRectMake(-1, -1, 14, 12)));
  test::expectPixels(
      out,
      [&](int x, int y) {
        Pixel sum{bias, bias, bias, bias};
        for (int j = 0; j < 3; ++j)
          for (int i = 0; i < 3; ++i) {
            Pixel v = source.at(x + i - 1, y + 1 - j);
            for (size_t c = 0; c < 4; ++c) sum[c] += w[size_t(3 * j + i)] * v[c];
          }
        for (double& v : sum) v = std::clamp(v, 0.0, 1.0);
        return sum;
      },
      1e-5, "convolution");
}

}  // namespace
}  // namespace brenvia
