#include "test_support.h"

#include "operators/alpha_filter.h"
#include "operators/library_operators.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

TEST(BVAlphaCIFilter, KeepsColourAndScalesOpacity) {
  BVRegisterLibraryOperators();
  const CGRect rect = CGRectMake(0, 0, 1, 1);
  auto half = CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6, 0.8))->imageByCroppingToRect(rect);
  auto out = test::renderFloat(half->imageByApplyingFilter("BVAlphaCIFilter", {{"inputAlpha", 0.5}}), rect,
                               test::unmanaged());
  EXPECT_NEAR(out[3], 0.4, 1e-6);
  EXPECT_NEAR(out[0], 0.2 * 0.4, 1e-6);
  EXPECT_NEAR(out[2], 0.6 * 0.4, 1e-6);
  auto filter = CIFilter::filterWithName("BVAlphaCIFilter");
  EXPECT_EQ(filter->outputImage(), nullptr);
  EXPECT_EQ(BVAlphaCIFilterImageWithAlpha(0.5, nullptr), nullptr);
}

}  // namespace
}  // namespace brenvia
