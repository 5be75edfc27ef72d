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
  void expectRow(size_t y, const std::vector<int>& expected, const char* name) const {
    for (size_t x = 0; x < kSide; ++x) EXPECT_NEAR(alphaAt(x, y), expected[x], 8) << name << " pixel " << x;
  }
};

// A line of width 2 along y = 4 from x = 1 to x = 7 covers the pixel rows 3 and 4 from the top.
// "scaled" strokes width 1 after scaling by 2: points keep the transform of when they were added,
// the width takes the one of the stroke. A hairline is one device pixel whatever the transform.
TEST(CGContextPath, CapsDashesAndTheTransformShapeTheStroke) {
  const double dash[] = {2, 2};
  const struct {
    const char* name;
    CGLineCap cap;
    size_t dashCount;
    double width, scaleAfterAdding;
    std::vector<int> row;
  } cases[] = {
      {"butt", kCGLineCapButt, 0, 2, 1, {0, 255, 255, 255, 255, 255, 255, 0}},
      {"square", kCGLineCapSquare, 0, 2, 1, {255, 255, 255, 255, 255, 255, 255, 255}},
      {"round", kCGLineCapRound, 0, 2, 1, {200, 255, 255, 255, 255, 255, 255, 200}},
      {"dashed", kCGLineCapButt, 2, 2, 1, {0, 255, 255, 0, 0, 255, 255, 0}},
      {"scaled", kCGLineCapButt, 0, 1, 2, {0, 255, 255, 255, 255, 255, 255, 0}},
      {"hairline", kCGLineCapButt, 0, 0, 2, {0, 128, 128, 128, 128, 128, 128, 0}},
  };
  for (const auto& c : cases) {
    Canvas canvas;
    CGContextSetLineCap(canvas.context, c.cap);
    CGContextSetLineDash(canvas.context, 0, dash, c.dashCount);
    CGContextSetLineWidth(canvas.context, c.width);
    CGContextSetRGBStrokeColor(canvas.context, 1, 0, 0, 1);
    CGContextMoveToPoint(canvas.context, 1, 4);
    CGContextAddLineToPoint(canvas.context, 7, 4);
    CGContextScaleCTM(canvas.context, c.scaleAfterAdding, c.scaleAfterAdding);
    CGContextStrokePath(canvas.context);
    canvas.expectRow(3, c.row, c.name);
    canvas.expectRow(4, c.row, c.name);
    EXPECT_EQ(canvas.alphaAt(4, 2), 0) << c.name;
    EXPECT_EQ(canvas.memory[(3 * kSide + 2) * 4], canvas.alphaAt(2, 3)) << c.name;  // red, premultiplied
    EXPECT_TRUE(CGContextIsPathEmpty(canvas.context));
  }
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
  CGContextFillPath(canvas.context);  // the first fill emptied the path
  EXPECT_NEAR(canvas.alphaAt(2, 4), 128, 1);
  EXPECT_EQ(canvas.alphaAt(5, 4), 0);  // clipped
  EXPECT_EQ(canvas.alphaAt(0, 0), 0);  // outside the ellipse
}

// Pies from the centre: a quarter turn counter-clockwise from the x axis covers the upper right
// (the top rows in memory); clockwise between the same angles it covers the other three quarters.
TEST(CGContextPath, ArcsTurnTheAskedWayAndAFullTurnIsTheCircle) {
  for (int clockwise : {0, 1}) {
    Canvas canvas;
    CGContextMoveToPoint(canvas.context, 4, 4);
    CGContextAddArc(canvas.context, 4, 4, 4, 0, std::numbers::pi / 2, clockwise);
    CGContextClosePath(canvas.context);
    CGContextFillPath(canvas.context);
    EXPECT_EQ(canvas.alphaAt(5, 2) == 255, !clockwise);
    EXPECT_EQ(canvas.alphaAt(2, 2) == 255, bool(clockwise));
    EXPECT_EQ(canvas.alphaAt(5, 5) == 255, bool(clockwise));
  }
  Canvas arc, ellipse;
  CGContextAddArc(arc.context, 4, 4, 3.5, 1, 1 + 2 * std::numbers::pi, 0);
  CGContextFillPath(arc.context);
  CGContextFillEllipseInRect(ellipse.context, CGRectMake(0.5, 0.5, 7, 7));
  for (size_t i = 0; i < arc.memory.size(); ++i) EXPECT_NEAR(arc.memory[i], ellipse.memory[i], 8) << i;
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
}

}  // namespace
}  // namespace brenvia
