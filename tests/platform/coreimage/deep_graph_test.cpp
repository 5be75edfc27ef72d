#include "platform/coreimage/ci_context.h"
#include "platform/coreimage/ci_filter.h"
#include "test_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

// A chain as long as a hostile recipe makes is refused by the render with one line, and both the
// render and the release of the chain stay within the stack.
TEST(DeepGraphs, LongChainsAreRefusedAndReleasedWithoutRecursion) {
  CIImageRef image = CIImage::imageWithCGImage(test::solidBitmap(4, 4, {10, 20, 30, 255}));
  CIImageRef shallow = image;
  for (int i = 0; i < 100; ++i) shallow = shallow->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", 0.001}});
  auto context = CIContext::contextWithOptions({});
  EXPECT_TRUE(context->createCGImage(shallow, shallow->extent()));

  CIImageRef deep = image;
  for (int i = 0; i < 200000; ++i) deep = deep->imageByApplyingFilter("CIColorInvert");
  test::LogCapture log;
  EXPECT_FALSE(context->createCGImage(deep, deep->extent()));
  EXPECT_EQ(log.lines.size(), 1u);
  deep.reset();
}

}  // namespace
}  // namespace brenvia
