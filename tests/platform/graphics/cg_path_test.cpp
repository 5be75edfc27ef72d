#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/graphics/cg_context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <numbers>

namespace brenvia {
namespace {

constexpr size_t kSide = 8;

struct Canvas {
  std::vector<uint8_t> memory = std::vector<uint8_t>(kSide * kSide * 4, 0);
  CGContextRef context = CGBitmapContextCreate(memory.data(), kSide, kSide, 8, kSide * 4,
                                               CGColorSpaceCreateDeviceRGB(), kBVRGBA8BitmapInfo);
  // Alpha of the pixel `x` along the row `y`, both counted from the top-left corner.
  int alphaAt(size_t x, size_t y) const { return memory[(y * kSide + x) * 4 + 3]; }
  std::vector<int> alphaRow(size_t y) const {
    std::vector<int> row;
    for (size_t x = 0; x < kSide; ++x) row.push_back(alphaAt(x, y));
    return row;
  }
};

void expectNear(const std::vector<int>& actual, const std::vector<int>& expected, const char* name) {
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 8) << name << " pixel " << i;
}

// A line of width 2 along y = 4 from x = 1 to x = 7 covers the pixel rows 3 and 4 from the top.
TEST(CGContextPath, CapsAndDashesShapeTheStroke) {
  const double dash[] = {2, 2};
  struct Case {
    const char* name;
    CGLineCap cap;
    size_t dashCount;
    std::vector<int> row;
  } cases[] = {
      {"butt", kCGLineCapButt, 0, {0, 255, 255, 255, 255, 255, 255, 0}},
      {"square", kCGLineCapSquare, 0, {255, 255, 255, 255, 255, 255, 255, 255}},
      {"round", kCGLineCapRound, 0, {200, 255, 255, 255, 255, 255, 255, 200}},
      {"dashed", kCGLineCapButt, 2, {0, 255, 255, 0, 0, 255, 255, 0}},
  };
  for (const Case& c : cases) {
    Canvas canvas;
    CGContextSetLineCap(canvas.context, c.cap);
    CGContextSetLineDash(canvas.context, 0, dash, c.dashCount);
    CGContextSetLineWidth(canvas.context, 2);
    CGContextMoveToPoint(canvas.context, 1, 4);
    CGContextAddLineToPoint(canvas.context, 7, 4);
    CGContextStrokePath(canvas.context);
    expectNear(canvas.alphaRow(3), c.row, c.name);
    expectNear(canvas.alphaRow(4), c.row, c.name);
    EXPECT_EQ(canvas.alphaAt(4, 2), 0) << c.name;
    EXPECT_TRUE(CGContextIsPathEmpty(canvas.context));
  }
}

TEST(CGContextPath, PointsAreFixedWhenAddedAndTheWidthWhenStroked) {
  Canvas canvas;
  CGContextSaveGState(canvas.context);
  CGContextMoveToPoint(canvas.context, 1, 4);
  CGContextAddLineToPoint(canvas.context, 7, 4);
  CGContextScaleCTM(canvas.context, 2, 2);
  CGContextSetRGBStrokeColor(canvas.context, 1, 0, 0, 1);
  CGContextStrokePath(canvas.context);  // width 1 in user space is 2 pixels now
  CGContextRestoreGState(canvas.context);
  expectNear(canvas.alphaRow(3), {0, 255, 255, 255, 255, 255, 255, 0}, "scaled");
  expectNear(canvas.alphaRow(4), {0, 255, 255, 255, 255, 255, 255, 0}, "scaled");
  EXPECT_EQ(canvas.memory[(3 * kSide + 2) * 4], 255);  // red
}

TEST(CGContextPath, FillRulesDecideTheInnerRectangle) {
  for (bool evenOdd : {false, true}) {
    Canvas canvas;
    CGContextAddRect(canvas.context, CGRectMake(0, 0, 8, 8));
    CGContextAddRect(canvas.context, CGRectMake(2, 2, 4, 4));
    CGContextDrawPath(canvas.context, evenOdd ? kCGPathEOFill : kCGPathFill);
    EXPECT_EQ(canvas.alphaAt(1, 1), 255) << evenOdd;
    EXPECT_EQ(canvas.alphaAt(4, 4), evenOdd ? 0 : 255) << evenOdd;
  }
}

TEST(CGContextPath, ThePathOutlivesTheStateAndPaintsThroughAlphaAndClip) {
  Canvas canvas;
  CGContextAddEllipseInRect(canvas.context, CGRectMake(0, 0, 8, 8));
  CGContextSaveGState(canvas.context);
  CGContextTranslateCTM(canvas.context, 3, 3);
  CGContextRestoreGState(canvas.context);
  auto leftHalf = CGImage::create(8, 1, 8, CGPixelFormat::Gray8, CGColorSpaceCreateDeviceGray(),
                                  std::shared_ptr<const uint8_t[]>(new uint8_t[8]{255, 255, 255, 255}));
  CGContextClipToMask(canvas.context, CGRectMake(0, 0, 8, 8), leftHalf);
  CGContextSetAlpha(canvas.context, 0.5);
  CGContextFillPath(canvas.context);
  EXPECT_NEAR(canvas.alphaAt(2, 4), 128, 1);
  EXPECT_EQ(canvas.alphaAt(5, 4), 0);  // clipped
  EXPECT_EQ(canvas.alphaAt(0, 0), 0);  // outside the ellipse
  CGContextFillPath(canvas.context);   // the first fill emptied the path
  EXPECT_NEAR(canvas.alphaAt(2, 4), 128, 1);
}

TEST(CGContextPath, ArcsTurnTheAskedWayAndAFullTurnIsTheCircle) {
  // Pies from the centre: a quarter counter-clockwise from the x axis is the upper right quarter
  // (the top rows in memory); clockwise between the same angles it is the other three.
  const double quarter = std::numbers::pi / 2;
  const struct {
    int clockwise;
    bool upperRight, upperLeft, lowerRight;
  } cases[] = {{0, true, false, false}, {1, false, true, true}};
  for (const auto& c : cases) {
    Canvas canvas;
    CGContextMoveToPoint(canvas.context, 4, 4);
    CGContextAddArc(canvas.context, 4, 4, 4, 0, quarter, c.clockwise);
    CGContextClosePath(canvas.context);
    CGContextFillPath(canvas.context);
    EXPECT_EQ(canvas.alphaAt(5, 2) == 255, c.upperRight) << c.clockwise;
    EXPECT_EQ(canvas.alphaAt(2, 2) == 255, c.upperLeft) << c.clockwise;
    EXPECT_EQ(canvas.alphaAt(5, 5) == 255, c.lowerRight) << c.clockwise;
  }
  Canvas arc, ellipse;
  CGContextAddArc(arc.context, 4, 4, 3.5, 1, 1 + 2 * std::numbers::pi, 0);
  CGContextFillPath(arc.context);
  CGContextFillEllipseInRect(ellipse.context, CGRectMake(0.5, 0.5, 7, 7));
  for (size_t y = 0; y < kSide; ++y) expectNear(arc.alphaRow(y), ellipse.alphaRow(y), "circle");
}

TEST(CGContextPath, CurrentPointFollowsTheTransformAndBadPointsAreIgnored) {
  Canvas canvas;
  CGContextAddLineToPoint(canvas.context, 5, 5);  // no current point yet
  EXPECT_TRUE(CGContextIsPathEmpty(canvas.context));
  CGContextMoveToPoint(canvas.context, 1, 2);
  CGContextAddQuadCurveToPoint(canvas.context, 3, 3, 4, 2);
  CGContextAddLineToPoint(canvas.context, std::nan(""), 1);
  CGContextTranslateCTM(canvas.context, 1, 0);
  EXPECT_EQ(CGContextGetPathCurrentPoint(canvas.context), CGPointMake(3, 2));
  CGContextClosePath(canvas.context);
  EXPECT_EQ(CGContextGetPathCurrentPoint(canvas.context), CGPointMake(0, 2));
  CGContextBeginPath(canvas.context);
  EXPECT_EQ(CGContextGetPathCurrentPoint(canvas.context), CGPointZero);
}

}  // namespace
}  // namespace brenvia
