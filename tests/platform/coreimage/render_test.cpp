#include "test_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

using test::pixelAt;

// Halving red runs on linear values by default (0.5 linear is 187.5 in sRGB bytes, rounded either
// way) and on the stored values without a working space.
TEST(ColorManagement, MatrixRunsInTheWorkingSpace) {
  auto halved = CIImage::imageWithCGImage(test::solidBitmap(4, 4, {255, 0, 0, 255}))
                    ->imageByApplyingFilter("CIColorMatrix", {{"inputRVector", CIVector{0.5, 0, 0, 0}}});
  for (auto [options, red, tolerance] : {std::tuple{CIContextOptions{}, 187, 1}, {test::unmanaged(), 128, 0}}) {
    auto out = CIContext::contextWithOptions(options)->createCGImage(halved, CGRectMake(0, 0, 4, 4));
    ASSERT_TRUE(out);
    EXPECT_NEAR(pixelAt(out, 1, 1)[0], red, tolerance) << red;
    EXPECT_EQ(pixelAt(out, 1, 1)[3], 255);
  }
}

TEST(ColorManagement, SRGBWorkingSpaceRoundTripsBytes) {
  CIContextOptions options;
  options.workingColorSpace = CGColorSpaceCreateDeviceRGB();
  auto source = test::noiseBitmap(37, 23);
  auto out = CIContext::contextWithOptions(options)->createCGImage(CIImage::imageWithCGImage(source),
                                                                   CGRectMake(0, 0, 37, 23), kCIFormatRGBA8, nullptr);
  ASSERT_TRUE(out);
  for (size_t y = 0; y < 23; ++y) {
    for (size_t x = 0; x < 37; ++x) {
      const uint8_t* s = source->row(y) + 4 * x;
      auto p = pixelAt(out, x, y);
      ASSERT_EQ(p[3], s[3]);
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(p[c], std::round(s[c] * s[3] / 255.0), 1);
    }
  }
}

TEST(ColorManagement, LinearWorkingSpaceRoundTripsOpaqueBytesExactly) {
  auto source = test::makeBitmap(256, 1, [](size_t x, size_t) {
    return std::array<uint8_t, 4>{uint8_t(x), uint8_t(255 - x), uint8_t(x / 2), 255};
  });
  auto out = CIContext::context()->createCGImage(CIImage::imageWithCGImage(source), CGRectMake(0, 0, 256, 1));
  for (size_t x = 0; x < 256; ++x) {
    auto p = pixelAt(out, x, 0);
    ASSERT_EQ(p[0], int(x));
    ASSERT_EQ(p[1], int(255 - x));
    ASSERT_EQ(p[2], int(x / 2));
  }
}

// The rect of image rendered on its own into a float bitmap, returned as a source image: the next
// operation reads stored pixels and cannot fold with the ones before. Without colour management the
// values pass through unchanged.
CIImageRef renderedOnItsOwn(const CIImageRef& image, const CGRect& rect) {
  auto bitmap = CGImage::allocate(size_t(rect.size.width), size_t(rect.size.height),
                                  CGPixelFormat::RGBAFloatPremultiplied, CGColorSpaceRef());
  CIContext::contextWithOptions(test::unmanaged())
      ->render(image, bitmap->mutableRow(0), bitmap->bytesPerRow(), rect, kCIFormatRGBAf, nullptr);
  return CIImage::imageWithCGImage(bitmap);
}

TEST(Plan, FoldedMatricesMatchSeparateOnes) {
  const CGRect rect = CGRectMake(0, 0, 64, 64);
  const std::vector<std::pair<std::string, CIFilterParameters>> steps = {
      {"CIExposureAdjust", {{"inputEV", 0.7}}},
      {"CIColorMatrix", {{"inputGVector", CIVector{0.2, 0.5, 0.1, 0}}, {"inputBiasVector", CIVector{0.1, 0, 0, 0}}}},
      {"CIColorMatrix", {{"inputRVector", CIVector{0.6, 0.3, 0, 0}}, {"inputBVector", CIVector{0, 0.4, 0.9, 0}}}},
      {"CIExposureAdjust", {{"inputEV", -0.3}}},
  };
  auto folded = CIImage::imageWithCGImage(test::noiseBitmap(64, 64));
  auto separate = folded;
  for (const auto& [name, parameters] : steps) {
    folded = folded->imageByApplyingFilter(name, parameters);
    separate = renderedOnItsOwn(separate->imageByApplyingFilter(name, parameters), rect);
  }
  auto a = test::renderFloat(folded, rect, test::unmanaged());
  auto b = test::renderFloat(separate, rect, test::unmanaged());
  for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-5f * std::max(1.0f, std::abs(b[i]))) << i;
}

}  // namespace
}  // namespace brenvia
