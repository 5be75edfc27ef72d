#include "platform/geometry/geometry.h"

#include <gtest/gtest.h>

#include <numbers>

namespace brenvia {
namespace {

void expectRect(const CGRect& r, double x, double y, double w, double h) {
  EXPECT_DOUBLE_EQ(r.origin.x, x);
  EXPECT_DOUBLE_EQ(r.origin.y, y);
  EXPECT_DOUBLE_EQ(r.size.width, w);
  EXPECT_DOUBLE_EQ(r.size.height, h);
}

TEST(Rect, NullAndInfiniteFollowTheirAlgebra) {
  CGRect r = CGRectMake(1, 2, 3, 4);
  expectRect(CGRectUnion(CGRectNull, r), 1, 2, 3, 4);
  EXPECT_TRUE(CGRectIsNull(CGRectIntersection(CGRectNull, r)));
  EXPECT_TRUE(CGRectIsNull(CGRectIntersection(r, CGRectMake(10, 10, 1, 1))));
  EXPECT_TRUE(CGRectIsInfinite(CGRectUnion(CGRectInfinite, r)));
  expectRect(CGRectIntersection(CGRectInfinite, r), 1, 2, 3, 4);
  EXPECT_TRUE(CGRectIsEmpty(CGRectNull));
  EXPECT_TRUE(CGRectIsEmpty(CGRectMake(0, 0, 0, 5)));
  EXPECT_FALSE(CGRectIsEmpty(CGRectInfinite));
  EXPECT_TRUE(CGRectIsInfinite(CGRectApplyAffineTransform(CGRectInfinite, CGAffineTransformMakeScale(2, 2))));
  EXPECT_TRUE(CGRectIsNull(CGRectOffset(CGRectNull, 5, 5)));
  EXPECT_TRUE(CGRectEqualToRect(CGRectIntegral(CGRectInfinite), CGRectInfinite));
}

TEST(Rect, NegativeSizesAreStandardisedAndIntegralRoundsOutwards) {
  CGRect r = CGRectMake(5, 5, -2, -3);
  EXPECT_DOUBLE_EQ(CGRectGetMinX(r), 3);
  EXPECT_DOUBLE_EQ(CGRectGetMaxY(r), 5);
  expectRect(CGRectIntegral(CGRectMake(0.5, -1.2, 2.1, 1.1)), 0, -2, 3, 2);
  expectRect(CGRectInset(CGRectMake(0, 0, 10, 10), 2, 3), 2, 3, 6, 4);
  EXPECT_TRUE(CGRectIsNull(CGRectInset(CGRectMake(0, 0, 2, 2), 2, 0)));
  EXPECT_TRUE(CGRectContainsPoint(CGRectMake(0, 0, 1, 1), {0, 0}));
  EXPECT_FALSE(CGRectContainsPoint(CGRectMake(0, 0, 1, 1), {1, 0.5}));
  EXPECT_TRUE(CGRectContainsRect(CGRectMake(0, 0, 10, 10), CGRectMake(2, 2, 3, 3)));
}

TEST(AffineTransform, StepsApplyBeforeTheTransformAndConcatInOrder) {
  // Translate then scale: Scale(Translate) applies the scale first.
  CGAffineTransform t = CGAffineTransformScale(CGAffineTransformMakeTranslation(10, 0), 2, 2);
  CGPoint p = CGPointApplyAffineTransform({1, 1}, t);
  EXPECT_DOUBLE_EQ(p.x, 12);
  EXPECT_DOUBLE_EQ(p.y, 2);
  CGAffineTransform c = CGAffineTransformConcat(CGAffineTransformMakeScale(2, 2), CGAffineTransformMakeTranslation(10, 0));
  p = CGPointApplyAffineTransform({1, 1}, c);
  EXPECT_DOUBLE_EQ(p.x, 12);
  CGAffineTransform r = CGAffineTransformMakeRotation(std::numbers::pi / 2);
  p = CGPointApplyAffineTransform({1, 0}, r);
  EXPECT_NEAR(p.x, 0, 1e-12);
  EXPECT_NEAR(p.y, 1, 1e-12);
  CGAffineTransform m = CGAffineTransformMake(2, 1, -1, 3, 5, -7);
  CGAffineTransform id = CGAffineTransformConcat(m, CGAffineTransformInvert(m));
  for (double v : {id.a - 1, id.b, id.c, id.d - 1, id.tx, id.ty}) EXPECT_NEAR(v, 0, 1e-12);
  CGAffineTransform singular = CGAffineTransformMakeScale(0, 1);
  EXPECT_EQ(CGAffineTransformInvert(singular), singular);
  expectRect(CGRectApplyAffineTransform(CGRectMake(0, 0, 2, 1), r), -1, 0, 1, 2);
}

TEST(Strings, ShortestRoundTripNumbers) {
  EXPECT_EQ(NSStringFromCGSize({640, 480.5}), "{640, 480.5}");
  EXPECT_EQ(NSStringFromCGPoint({0.1, -3}), "{0.1, -3}");
  EXPECT_EQ(NSStringFromCGRect(CGRectMake(1, 2, 3, 4)), "{{1, 2}, {3, 4}}");
}

}  // namespace
}  // namespace brenvia
