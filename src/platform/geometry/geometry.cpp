#include "platform/geometry/geometry.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace brenvia {
namespace {

constexpr double kMax = std::numeric_limits<double>::max();

std::string shortest(double v) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, end);
}

}  // namespace

bool CGRectIsNull(const CGRect& r) { return std::isinf(r.origin.x) && r.origin.x > 0; }

bool CGRectIsInfinite(const CGRect& r) { return r.size.width == kMax || r.size.height == kMax; }

bool CGRectIsEmpty(const CGRect& r) { return CGRectIsNull(r) || r.size.width == 0 || r.size.height == 0; }

CGRect CGRectStandardize(const CGRect& r) {
  if (CGRectIsNull(r) || CGRectIsInfinite(r)) return r;
  CGRect s = r;
  if (s.size.width < 0) { s.origin.x += s.size.width; s.size.width = -s.size.width; }
  if (s.size.height < 0) { s.origin.y += s.size.height; s.size.height = -s.size.height; }
  return s;
}

double CGRectGetMinX(const CGRect& r) { return CGRectStandardize(r).origin.x; }
double CGRectGetMinY(const CGRect& r) { return CGRectStandardize(r).origin.y; }
double CGRectGetMaxX(const CGRect& r) {
  CGRect s = CGRectStandardize(r);
  return CGRectIsInfinite(s) ? kMax / 2 : s.origin.x + s.size.width;
}
double CGRectGetMaxY(const CGRect& r) {
  CGRect s = CGRectStandardize(r);
  return CGRectIsInfinite(s) ? kMax / 2 : s.origin.y + s.size.height;
}
double CGRectGetMidX(const CGRect& r) { return CGRectIsInfinite(r) ? 0 : CGRectGetMinX(r) + CGRectGetWidth(r) / 2; }
double CGRectGetMidY(const CGRect& r) { return CGRectIsInfinite(r) ? 0 : CGRectGetMinY(r) + CGRectGetHeight(r) / 2; }
double CGRectGetWidth(const CGRect& r) { return std::abs(r.size.width); }
double CGRectGetHeight(const CGRect& r) { return std::abs(r.size.height); }

bool CGRectEqualToRect(const CGRect& a, const CGRect& b) {
  if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectIsNull(a) && CGRectIsNull(b);
  CGRect x = CGRectStandardize(a), y = CGRectStandardize(b);
  return x.origin == y.origin && x.size == y.size;
}

CGRect CGRectUnion(const CGRect& a, const CGRect& b) {
  if (CGRectIsNull(a)) return CGRectStandardize(b);
  if (CGRectIsNull(b)) return CGRectStandardize(a);
  if (CGRectIsInfinite(a) || CGRectIsInfinite(b)) return CGRectInfinite;
  double x0 = std::min(CGRectGetMinX(a), CGRectGetMinX(b)), y0 = std::min(CGRectGetMinY(a), CGRectGetMinY(b));
  double x1 = std::max(CGRectGetMaxX(a), CGRectGetMaxX(b)), y1 = std::max(CGRectGetMaxY(a), CGRectGetMaxY(b));
  return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

CGRect CGRectIntersection(const CGRect& a, const CGRect& b) {
  if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectNull;
  if (CGRectIsInfinite(a)) return CGRectStandardize(b);
  if (CGRectIsInfinite(b)) return CGRectStandardize(a);
  double x0 = std::max(CGRectGetMinX(a), CGRectGetMinX(b)), y0 = std::max(CGRectGetMinY(a), CGRectGetMinY(b));
  double x1 = std::min(CGRectGetMaxX(a), CGRectGetMaxX(b)), y1 = std::min(CGRectGetMaxY(a), CGRectGetMaxY(b));
  if (x1 < x0 || y1 < y0) return CGRectNull;
  return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

bool CGRectIntersectsRect(const CGRect& a, const CGRect& b) { return !CGRectIsEmpty(CGRectIntersection(a, b)); }

bool CGRectContainsPoint(const CGRect& r, CGPoint p) {
  if (CGRectIsNull(r)) return false;
  if (CGRectIsInfinite(r)) return true;
  return p.x >= CGRectGetMinX(r) && p.x < CGRectGetMaxX(r) && p.y >= CGRectGetMinY(r) && p.y < CGRectGetMaxY(r);
}

bool CGRectContainsRect(const CGRect& outer, const CGRect& inner) {
  if (CGRectIsNull(inner)) return !CGRectIsNull(outer);
  return CGRectEqualToRect(CGRectUnion(outer, inner), CGRectStandardize(outer));
}

CGRect CGRectIntegral(const CGRect& r) {
  if (CGRectIsNull(r) || CGRectIsInfinite(r)) return r;
  CGRect s = CGRectStandardize(r);
  double x0 = std::floor(s.origin.x), y0 = std::floor(s.origin.y);
  double x1 = std::ceil(s.origin.x + s.size.width), y1 = std::ceil(s.origin.y + s.size.height);
  return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

CGRect CGRectInset(const CGRect& r, double dx, double dy) {
  if (CGRectIsNull(r) || CGRectIsInfinite(r)) return r;
  CGRect s = CGRectStandardize(r);
  double w = s.size.width - 2 * dx, h = s.size.height - 2 * dy;
  if (w < 0 || h < 0) return CGRectNull;
  return CGRectMake(s.origin.x + dx, s.origin.y + dy, w, h);
}

CGRect CGRectOffset(const CGRect& r, double dx, double dy) {
  if (CGRectIsNull(r) || CGRectIsInfinite(r)) return r;
  CGRect s = CGRectStandardize(r);
  return CGRectMake(s.origin.x + dx, s.origin.y + dy, s.size.width, s.size.height);
}

CGAffineTransform CGAffineTransformMake(double a, double b, double c, double d, double tx, double ty) {
  return {a, b, c, d, tx, ty};
}
CGAffineTransform CGAffineTransformMakeTranslation(double tx, double ty) { return {1, 0, 0, 1, tx, ty}; }
CGAffineTransform CGAffineTransformMakeScale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
CGAffineTransform CGAffineTransformMakeRotation(double angle) {
  double c = std::cos(angle), s = std::sin(angle);
  return {c, s, -s, c, 0, 0};
}

CGAffineTransform CGAffineTransformConcat(const CGAffineTransform& t1, const CGAffineTransform& t2) {
  return {t1.a * t2.a + t1.b * t2.c,
          t1.a * t2.b + t1.b * t2.d,
          t1.c * t2.a + t1.d * t2.c,
          t1.c * t2.b + t1.d * t2.d,
          t1.tx * t2.a + t1.ty * t2.c + t2.tx,
          t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

CGAffineTransform CGAffineTransformTranslate(const CGAffineTransform& t, double tx, double ty) {
  return CGAffineTransformConcat(CGAffineTransformMakeTranslation(tx, ty), t);
}
CGAffineTransform CGAffineTransformScale(const CGAffineTransform& t, double sx, double sy) {
  return CGAffineTransformConcat(CGAffineTransformMakeScale(sx, sy), t);
}
CGAffineTransform CGAffineTransformRotate(const CGAffineTransform& t, double angle) {
  return CGAffineTransformConcat(CGAffineTransformMakeRotation(angle), t);
}

CGAffineTransform CGAffineTransformInvert(const CGAffineTransform& t) {
  double det = t.a * t.d - t.b * t.c;
  if (det == 0 || !std::isfinite(det)) return t;
  double a = t.d / det, b = -t.b / det, c = -t.c / det, d = t.a / det;
  return {a, b, c, d, -(a * t.tx + c * t.ty), -(b * t.tx + d * t.ty)};
}

bool CGAffineTransformIsIdentity(const CGAffineTransform& t) { return t == CGAffineTransformIdentity; }
bool CGAffineTransformEqualToTransform(const CGAffineTransform& a, const CGAffineTransform& b) { return a == b; }

CGPoint CGPointApplyAffineTransform(CGPoint p, const CGAffineTransform& t) {
  return {t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}

CGSize CGSizeApplyAffineTransform(CGSize s, const CGAffineTransform& t) {
  return {t.a * s.width + t.c * s.height, t.b * s.width + t.d * s.height};
}

CGRect CGRectApplyAffineTransform(const CGRect& r, const CGAffineTransform& t) {
  if (CGRectIsNull(r) || CGRectIsInfinite(r)) return r;
  CGRect s = CGRectStandardize(r);
  const CGPoint corners[4] = {{CGRectGetMinX(s), CGRectGetMinY(s)}, {CGRectGetMaxX(s), CGRectGetMinY(s)},
                              {CGRectGetMinX(s), CGRectGetMaxY(s)}, {CGRectGetMaxX(s), CGRectGetMaxY(s)}};
  double x0 = kMax, y0 = kMax, x1 = -kMax, y1 = -kMax;
  for (CGPoint c : corners) {
    CGPoint m = CGPointApplyAffineTransform(c, t);
    x0 = std::min(x0, m.x); y0 = std::min(y0, m.y);
    x1 = std::max(x1, m.x); y1 = std::max(y1, m.y);
  }
  return CGRectMake(x0, y0, x1 - x0, y1 - y0);
}

namespace {

// "{a, b}"
std::string pair(const std::string& a, const std::string& b) {
  std::string text = "{";
  text.append(a).append(", ").append(b).append("}");
  return text;
}

}  // namespace

std::string NSStringFromCGPoint(CGPoint p) { return pair(shortest(p.x), shortest(p.y)); }
std::string NSStringFromCGSize(CGSize s) { return pair(shortest(s.width), shortest(s.height)); }
std::string NSStringFromCGRect(const CGRect& r) { return pair(NSStringFromCGPoint(r.origin), NSStringFromCGSize(r.size)); }

CGPoint CGPointFromString(std::string_view text) {
  std::string copy(text);
  CGPoint p;
  if (std::sscanf(copy.c_str(), " { %lf , %lf }", &p.x, &p.y) != 2) return {};
  return p;
}

}  // namespace brenvia
