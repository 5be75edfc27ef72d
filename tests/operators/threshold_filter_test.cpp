#include "operators/threshold_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brenvia {
namespace {

class ThresholdFilter : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { BVRegisterThresholdCIFilter(); }

  // The threshold of one flat colour, rendered without colour management.
  static std::array<float, 4> thresholdOf(const CIColor& color, std::optional<std::pair<double, double>> edges = {}) {
    auto op = CIFilter::filterWithName("BVThresholdCIFilter");
    op->setValue(CIImage::imageWithColor(color)->imageByCroppingToRect(CGRectMake(0, 0, 1, 1)), "inputImage");
    if (edges) {
      op->setValue(edges->first, "inputEdge0");
      op->setValue(edges->second, "inputEdge1");
    }
    auto out = test::renderFloat(op->outputImage(), CGRectMake(0, 0, 1, 1), test::unmanaged());
    return {out[0], out[1], out[2], out[3]};
  }
};

float smoothstepReference(float e0, float e1, float x) {
  float t = std::clamp((x - e0) / (e1 - e0), 0.0f, 1.0f);
  return t * t * (3 - 2 * t);
}

TEST_F(ThresholdFilter, RegisteredAndKeepsTheExtent) {
  auto op = CIFilter::filterWithName("BVThresholdCIFilter");
  ASSERT_TRUE(op);
  EXPECT_EQ(op->outputImage(), nullptr);

  auto input = CIImage::imageWithColor(CIColor(1, 1, 1))->imageByCroppingToRect(CGRectMake(3, 4, 5, 6));
  op->setValue(input, "inputImage");
  EXPECT_TRUE(CGRectEqualToRect(op->outputImage()->extent(), input->extent()));
}

TEST_F(ThresholdFilter, SmoothstepOfRec709LumaAtChosenPixels) {
  auto mid = thresholdOf(CIColor(0.5, 0.5, 0.5));
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(mid[size_t(c)], 0.5f, 1e-6);
  EXPECT_EQ(mid[3], 1.0f);

  EXPECT_EQ(thresholdOf(CIColor(1, 0, 0))[0], 0.0f);  // luma 0.2126 is under the lower edge
  EXPECT_EQ(thresholdOf(CIColor(0, 0, 0))[0], 0.0f);
  EXPECT_EQ(thresholdOf(CIColor(1, 1, 1))[0], 1.0f);
  EXPECT_NEAR(thresholdOf(CIColor(0, 1, 0))[1], smoothstepReference(0.25f, 0.75f, 0.7152f), 1e-5);
  EXPECT_NEAR(thresholdOf(CIColor(0, 0, 1), std::pair{0.0, 0.1})[2], smoothstepReference(0, 0.1f, 0.0722f), 1e-5);
  // White at half opacity is (0.5, 0.5, 0.5, 0.5) premultiplied: luma 0.5, not 1, made opaque.
  auto half = thresholdOf(CIColor(1, 1, 1, 0.5));
  EXPECT_NEAR(half[0], 0.5f, 1e-6);
  EXPECT_EQ(half[3], 1.0f);
  // Equal edges make a step.
  EXPECT_EQ(thresholdOf(CIColor(0.4, 0.4, 0.4), std::pair{0.5, 0.5})[0], 0.0f);
  EXPECT_EQ(thresholdOf(CIColor(0.6, 0.6, 0.6), std::pair{0.5, 0.5})[0], 1.0f);
}

}  // namespace
}  // namespace brenvia
