#include "platform/coreimage/ops/compositing_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brenvia {
namespace {

using test::Pixel;

CIImageRef maskBlend(std::string_view name, const CIImageRef& image, const CIImageRef& background,
                     const CIImageRef& mask) {
  CIFilterParameters parameters{{"inputMaskImage", mask}};
  if (background) parameters["inputBackgroundImage"] = background;
  return image->imageByApplyingFilter(name, parameters);
}

TEST(BlendWithMask, GreyMaskWithoutBackgroundScalesTheImage) {
  CGRect r = CGRectMake(0, 0, 3, 3);
  auto out =
      maskBlend("CIBlendWithMask", test::solid({1, 1, 1, 1}, r), nullptr, test::solid({0.25f, 0.25f, 0.25f, 1}, r));
  ASSERT_TRUE(out);
  test::expectEachPixel(out, 3, 3, [](size_t, size_t, size_t) { return 0.25; }, 0);
}

// Mixes all four premultiplied channels by the mask's green (or alpha), clamped to [0, 1].
TEST(BlendWithMask, MixesByClampedMaskChannel) {
  auto imageAt = [](size_t i, size_t) { return Pixel{0.8f, 0.1f * float(i), 1.5f, 0.9f}; };
  auto backgroundAt = [](size_t, size_t j) { return Pixel{0.2f, 0.4f, -0.3f, j == 0 ? 1.0f : 0.5f}; };
  // Green and alpha differ, and both run outside [0, 1].
  auto level = [](size_t i) { return -0.5f + 0.25f * float(i); };
  auto maskAt = [&](size_t i, size_t) { return Pixel{0.3f, level(i), 0.7f, level(8 - i)}; };
  auto image = test::floatImage(9, 2, imageAt), background = test::floatImage(9, 2, backgroundAt);
  auto mask = test::floatImage(9, 2, maskAt);
  for (auto [name, green] : {std::pair{"CIBlendWithMask", true}, std::pair{"CIBlendWithAlphaMask", false}}) {
    SCOPED_TRACE(name);
    auto want = [&](size_t i, size_t j, size_t c) {
      double k = std::clamp(double(green ? level(i) : level(8 - i)), 0.0, 1.0);
      return backgroundAt(i, j)[c] + (imageAt(i, j)[c] - backgroundAt(i, j)[c]) * k;
    };
    test::expectEachPixel(maskBlend(name, image, background, mask), 9, 2, want, 1e-6);
  }
}

TEST(BlendWithMask, ExtentIsBackgroundPlusMaskedImage) {
  auto image = test::solid({1, 0, 0, 1}, CGRectMake(0, 0, 6, 6));
  auto mask = test::solid({1, 1, 1, 1}, CGRectMake(4, 4, 6, 6));
  auto background = test::solid({0, 0, 1, 1}, CGRectMake(-3, 0, 2, 2));
  auto out = maskBlend("CIBlendWithMask", image, background, mask);
  EXPECT_TRUE(CGRectEqualToRect(out->extent(), CGRectMake(-3, 0, 9, 6)));
  test::Rendered r(out, CGRectMake(-3, 0, 9, 6));
  EXPECT_FLOAT_EQ(r.at(5, 5)[0], 1.0f);   // image under the mask
  EXPECT_FLOAT_EQ(r.at(2, 2)[3], 0.0f);   // image outside the mask: k = 0 shows no background
  EXPECT_FLOAT_EQ(r.at(-2, 1)[2], 1.0f);  // background

  // Without a background only the masked image remains.
  EXPECT_TRUE(
      CGRectEqualToRect(maskBlend("CIBlendWithAlphaMask", image, nullptr, mask)->extent(), CGRectMake(4, 4, 2, 2)));
  // An image the mask does not touch leaves only the background's extent.
  auto far = test::solid({1, 1, 1, 1}, CGRectMake(40, 40, 2, 2));
  EXPECT_TRUE(CGRectEqualToRect(maskBlend("CIBlendWithMask", image, background, far)->extent(), background->extent()));
}

TEST(BlendWithMask, MaskAndImageAreNeeded) {
  auto image = test::solid({1, 1, 1, 1}, CGRectMake(0, 0, 2, 2));
  for (std::string_view name : {"CIBlendWithMask", "CIBlendWithAlphaMask"}) {
    SCOPED_TRACE(name);
    auto filter = CIFilter::filterWithName(name);
    ASSERT_TRUE(filter);
    filter->setValue(image, "inputImage");
    filter->setValue(image, "inputBackgroundImage");
    EXPECT_FALSE(filter->outputImage());  // no mask
    filter->setValue(image, "inputMaskImage");
    EXPECT_TRUE(filter->outputImage());
    filter->setValue(CIValue(), "inputImage");
    EXPECT_FALSE(filter->outputImage());
  }
}

}  // namespace
}  // namespace brenvia
