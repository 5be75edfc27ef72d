#include "curves/curves_plot.h"

#include "image/graphics_utilities.h"

#include <array>

namespace brenvia {
namespace {

using Colour = std::array<double, 3>;

Colour colourOf(const CColorCurve& curve) {
  const std::string name = curve.name().value_or("");
  if (name == "red") return {0.85, 0.1, 0.1};
  if (name == "green") return {0.1, 0.65, 0.15};
  if (name == "blue") return {0.1, 0.25, 0.9};
  return {0, 0, 0};
}

void strokeCurve(const CGContextRef& c, const BVPointList& points, const Colour& colour, double alpha) {
  CGContextSetRGBStrokeColor(c, colour[0], colour[1], colour[2], alpha);
  CGContextMoveToPoint(c, 0, 0);
  for (const CGPoint& p : points) CGContextAddLineToPoint(c, p.x, p.y);
  CGContextStrokePath(c);
}

void drawAxes(const CGContextRef& c, double scale) {
  CGContextSetRGBFillColor(c, 1, 1, 1, 1);
  CGContextFillRect(c, CGRectMake(0, 0, 255, 255));
  CGContextSetLineWidth(c, 1 / scale);
  CGContextSetRGBStrokeColor(c, 0.8, 0.8, 0.8, 1);
  for (double v : {63.75, 127.5, 191.25}) {
    CGContextMoveToPoint(c, v, 0);
    CGContextAddLineToPoint(c, v, 255);
    CGContextMoveToPoint(c, 0, v);
    CGContextAddLineToPoint(c, 255, v);
  }
  CGContextStrokePath(c);
  CGContextSetRGBStrokeColor(c, 0.3, 0.3, 0.3, 1);
  CGContextStrokeRect(c, CGRectMake(0, 0, 255, 255));
}

}  // namespace

CGImageRef BVCurvesImage(const CACVObject& curves, double scale, bool axes) {
  const double side = std::round(255 * scale);
  CGContextRef c = CGBitmapContextCreateWithSize(CGSizeMake(side, side));
  if (!c) return nullptr;
  CGContextScaleCTM(c, side / 255, side / 255);
  if (axes) drawAxes(c, scale);
  CGContextSetLineWidth(c, 1.5 / scale);
  CGContextSetLineJoin(c, kCGLineJoinRound);
  for (const auto& curve : {curves.redCurve(), curves.greenCurve(), curves.blueCurve(), curves.RGBCurve()}) {
    strokeCurve(c, curve->interpolatedPoints(), colourOf(*curve), 1);
  }
  for (const auto& curve : {curves.redCurve(), curves.greenCurve(), curves.blueCurve()}) {
    strokeCurve(c, curve->interpolatedPointsWithMasterInfluence(), colourOf(*curve), 0.25);
  }
  return CGBitmapContextCreateImage(c);
}

}  // namespace brenvia
