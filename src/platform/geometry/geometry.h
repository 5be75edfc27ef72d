#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace brenvia {

struct CGPoint {
  double x = 0, y = 0;
  friend bool operator==(const CGPoint&, const CGPoint&) = default;
};

struct CGSize {
  double width = 0, height = 0;
  friend bool operator==(const CGSize&, const CGSize&) = default;
};

struct CGRect {
  CGPoint origin;
  CGSize size;
};

// (a, b, c, d, tx, ty): x' = a*x + c*y + tx, y' = b*x + d*y + ty.
struct CGAffineTransform {
  double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
  friend bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

inline constexpr CGPoint CGPointZero{};
inline constexpr CGSize CGSizeZero{};
inline constexpr CGRect CGRectZero{};
inline constexpr CGAffineTransform CGAffineTransformIdentity{};
// The null rectangle: origin at +infinity, no size. Union with it gives the other operand.
inline constexpr CGRect CGRectNull{{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()}, {0, 0}};
// The infinite rectangle: origin -DBL_MAX/2, size DBL_MAX.
inline constexpr CGRect CGRectInfinite{{-std::numeric_limits<double>::max() / 2, -std::numeric_limits<double>::max() / 2},
                                       {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()}};

inline CGPoint CGPointMake(double x, double y) { return {x, y}; }
inline CGSize CGSizeMake(double w, double h) { return {w, h}; }
inline CGRect CGRectMake(double x, double y, double w, double h) { return {{x, y}, {w, h}}; }

bool CGRectIsNull(const CGRect& r);
bool CGRectIsInfinite(const CGRect& r);
// True for null rectangles and rectangles with zero (or negative) width or height.
bool CGRectIsEmpty(const CGRect& r);
// Rectangles with a negative size are normalised to a positive one before any computation.
CGRect CGRectStandardize(const CGRect& r);
double CGRectGetMinX(const CGRect& r);
double CGRectGetMinY(const CGRect& r);
double CGRectGetMaxX(const CGRect& r);
double CGRectGetMaxY(const CGRect& r);
double CGRectGetMidX(const CGRect& r);
double CGRectGetMidY(const CGRect& r);
double CGRectGetWidth(const CGRect& r);
double CGRectGetHeight(const CGRect& r);
bool CGRectEqualToRect(const CGRect& a, const CGRect& b);
CGRect CGRectUnion(const CGRect& a, const CGRect& b);
CGRect CGRectIntersection(const CGRect& a, const CGRect& b);
bool CGRectIntersectsRect(const CGRect& a, const CGRect& b);
bool CGRectContainsPoint(const CGRect& r, CGPoint p);
bool CGRectContainsRect(const CGRect& outer, const CGRect& inner);
// Floors the origin and ceils the far edges; null and infinite rectangles pass unchanged.
CGRect CGRectIntegral(const CGRect& r);
// Moves every edge inwards by (dx, dy); negative values grow the rectangle. Infinite stays infinite.
CGRect CGRectInset(const CGRect& r, double dx, double dy);
CGRect CGRectOffset(const CGRect& r, double dx, double dy);

CGAffineTransform CGAffineTransformMake(double a, double b, double c, double d, double tx, double ty);
CGAffineTransform CGAffineTransformMakeTranslation(double tx, double ty);
CGAffineTransform CGAffineTransformMakeScale(double sx, double sy);
CGAffineTransform CGAffineTransformMakeRotation(double angle);
// The new step is applied before t: the result maps p to t(step(p)).
CGAffineTransform CGAffineTransformTranslate(const CGAffineTransform& t, double tx, double ty);
CGAffineTransform CGAffineTransformScale(const CGAffineTransform& t, double sx, double sy);
CGAffineTransform CGAffineTransformRotate(const CGAffineTransform& t, double angle);
// t1 then t2.
CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1, const CGAffineTransform& t2);
// The inverse, or t itself when t is singular.
CGAffineTransform CGAffineTransformInvert(const CGAffineTransform& t);
bool CGAffineTransformIsIdentity(const CGAffineTransform& t);
bool CGAffineTransformEqualToTransform(const CGAffineTransform& a, const CGAffineTransform& b);
CGPoint CGPointApplyAffineTransform(CGPoint p, const CGAffineTransform& t);
CGSize CGSizeApplyAffineTransform(CGSize s, const CGAffineTransform& t);
// Bounding box of the four mapped corners; null stays null, infinite stays infinite.
CGRect CGRectApplyAffineTransform(const CGRect& r, const CGAffineTransform& t);

// "{x, y}", "{w, h}", "{{x, y}, {w, h}}" with numbers in shortest round-trip form.
std::string NSStringFromCGPoint(CGPoint p);
// The point of a "{x, y}" string; (0, 0) when the text is not one.
CGPoint CGPointFromString(std::string_view text);
std::string NSStringFromCGSize(CGSize s);
std::string NSStringFromCGRect(const CGRect& r);

}  // namespace brenvia
