#include "blur_and_geometry_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

using test::Pixel;
using test::Plane;

double luma(const Pixel& p) { return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2]; }

TEST(CIUnsharpMask, AddsTheDifferenceFromTheBlur) {
  auto image = test::noiseImage(40, 30, 11);
  const Plane source = Plane::of(test::render(image, image->extent()));
  // Radius 2 blurs directly, radius 6 through the sliding window (half-float intermediate).
  for (auto [radius, intensity, tolerance] : {std::tuple{2.0, 0.5, 1e-5}, std::tuple{6.0, 1.7, 2e-3}}) {
    auto out = image->imageByApplyingFilter("CIUnsharpMask", {{"inputRadius", radius}, {"inputIntensity", intensity}});
    ASSERT_TRUE(CGRectEqualToRect(out->extent(), image->extent()));
    const Plane blurred = test::convolve(source, test::gaussianWindow(radius));
    auto r = test::render(out, image->extent());
    for (int y = 0; y < 30; ++y) {
      for (int x = 0; x < 40; ++x) {
        Pixel s = source.at(x, y), b = blurred.at(x, y), got = r.at(x, y);
        for (size_t c = 0; c < 3; ++c)
          ASSERT_NEAR(got[c], s[c] + intensity * (s[c] - b[c]), tolerance) << x << "," << y;
        ASSERT_EQ(got[3], s[3]);
      }
    }
  }
  // Intensity below its minimum of 0 changes nothing.
  auto same = test::render(image->imageByApplyingFilter("CIUnsharpMask", {{"inputIntensity", -1.0}}), image->extent());
  EXPECT_EQ(same.data, test::render(image, image->extent()).data);
}

TEST(CISharpenLuminance, SharpensLumaAndKeepsColourDifferences) {
  auto image = test::noiseImage(36, 28, 5);
  const Plane source = Plane::of(test::render(image, image->extent()));
  // The luma of the unpremultiplied colour, as an opaque picture over the extent.
  Plane lumaPlane = source;
  for (Pixel& p : lumaPlane.pixels) {
    double y = p[3] > 0 ? luma(p) / p[3] : 0;
    p = {y, y, y, 1};
  }
  for (auto [radius, sharpness, tolerance] : {std::tuple{1.69, 0.4, 1e-5}, std::tuple{5.0, 1.5, 2e-3}}) {
    auto out =
        image->imageByApplyingFilter("CISharpenLuminance", {{"inputRadius", radius}, {"inputSharpness", sharpness}});
    ASSERT_TRUE(CGRectEqualToRect(out->extent(), image->extent()));
    const Plane blurred = test::convolve(lumaPlane, test::gaussianWindow(radius));
    auto r = test::render(out, image->extent());
    for (int y = 0; y < 28; ++y) {
      for (int x = 0; x < 36; ++x) {
        Pixel s = source.at(x, y), got = r.at(x, y);
        double lift = sharpness * (lumaPlane.at(x, y)[0] - blurred.at(x, y)[0]) * s[3];
        for (size_t c = 0; c < 3; ++c) ASSERT_NEAR(got[c], s[c] + lift, tolerance) << x << "," << y;
        ASSERT_EQ(got[3], s[3]);
        if (s[3] > 0) EXPECT_NEAR((got[0] - got[1]) / s[3], (s[0] - s[1]) / s[3], 1e-4);
      }
    }
  }
}

}  // namespace
}  // namespace brenvia
