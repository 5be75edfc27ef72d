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

TEST(Plan, FoldedMatricesMatchSeparateOnes) {
  auto source = CIImage::imageWithCGImage(test::noiseBitmap(64, 64));
  auto chain = source->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", 0.7}})
                   ->imageByApplyingFilter("CIColorMatrix", {{"inputGVector", CIVector{0.2, 0.5, 0.1, 0}},
                                                             {"inputBiasVector", CIVector{0.1, 0, 0, 0}}})
                   ->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", -0.3}});
  // A crop between the operations stops folding without changing the pixels.
  auto unfolded = source->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", 0.7}})
                      ->imageByCroppingToRect(CGRectMake(-1, -1, 100, 100))
                      ->imageByApplyingFilter("CIColorMatrix", {{"inputGVector", CIVector{0.2, 0.5, 0.1, 0}},
                                                                {"inputBiasVector", CIVector{0.1, 0, 0, 0}}})
                      ->imageByCroppingToRect(CGRectMake(-1, -1, 100, 100))
                      ->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", -0.3}});
  auto a = test::renderFloat(chain, CGRectMake(0, 0, 64, 64));
  auto b = test::renderFloat(unfolded, CGRectMake(0, 0, 64, 64));
  for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-5) << i;
}

}  // namespace
}  // namespace brenvia
