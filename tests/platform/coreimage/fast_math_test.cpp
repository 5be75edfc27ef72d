#include "platform/coreimage/engine/fast_math.h"

#include <gtest/gtest.h>

#include <cmath>

namespace brenvia {
namespace {

TEST(FastMath, PowMatchesTheLibraryOverPixelRanges) {
  for (float p : {0.25f, 0.75f, 1.0f / 2.4f, 1.0f, 2.2f, 3.0f}) {
    for (float x = 1e-4f; x < 8.0f; x *= 1.013f) {
      float expected = std::pow(x, p);
      ASSERT_NEAR(ci::fast::signedPow(x, p), expected, expected * 3e-6f) << x << "^" << p;
      ASSERT_NEAR(ci::fast::signedPow(-x, p), -expected, expected * 3e-6f);
    }
    EXPECT_EQ(ci::fast::signedPow(0.0f, p), 0.0f);
  }
  EXPECT_EQ(ci::fast::exp2(-200.0f), std::exp2(-126.0f));
  EXPECT_FLOAT_EQ(ci::fast::exp2(10.0f), 1024.0f);
  EXPECT_NEAR(ci::fast::log2(3.0f), std::log2(3.0f), 1e-6f);
}

}  // namespace
}  // namespace brenvia
