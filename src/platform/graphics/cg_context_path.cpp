#include "platform/graphics/cairo_support.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace brenvia {
namespace {

// Four cubic quarters approximate a circle best with control points this far along the tangents.
constexpr double kQuarterCircleControl = 0.5522847498307936;

// A user-space point in device pixels; nothing when it is not finite (Cairo would stop drawing).
std::optional<CGPoint> toDevice(const CGContextRef& c, double x, double y) {
  if (!std::isfinite(x) || !std::isfinite(y)) return std::nullopt;
  cairo_user_to_device(c->cairo(), &x, &y);
  return CGPointMake(x, y);
}

bool isFiniteRect(const CGRect& r) {
  return std::isfinite(r.origin.x) && std::isfinite(r.origin.y) && std::isfinite(r.size.width) &&
         std::isfinite(r.size.height);
}

// A width of 0 asks for the thinnest line there is: one device pixel.
double strokeWidth(cairo_t* cr, double width) {
  if (width > 0) return width;
  double dx = 1, dy = 0;
  cairo_device_to_user_distance(cr, &dx, &dy);
  return std::hypot(dx, dy);
}

void setStroke(cairo_t* cr, const CGGraphicsState& s) {
  cairo_set_line_width(cr, strokeWidth(cr, s.lineWidth));
  cairo_set_line_join(cr, s.lineJoin);
  cairo_set_line_cap(cr, s.lineCap);
  cairo_set_miter_limit(cr, s.miterLimit);
  cairo_set_dash(cr, s.dashes.data(), int(s.dashes.size()), s.dashPhase);
  cairo_set_source_rgba(cr, s.stroke[0], s.stroke[1], s.stroke[2], s.stroke[3]);
}

void paint(const CGContextRef& c, bool stroke, cairo_fill_rule_t rule) {
  const CGContextPath& path = c->path();
  const CGGraphicsState& s = c->state();
  c->draw([&](cairo_t* cr) {
    path.appendTo(cr);
    if (stroke) {
      setStroke(cr, s);
      cairo_stroke(cr);
    } else {
      cairo_set_fill_rule(cr, rule);
      cairo_set_source_rgba(cr, s.fill[0], s.fill[1], s.fill[2], s.fill[3]);
      cairo_fill(cr);
    }
  });
}

}  // namespace

void CGContextPath::add(cairo_path_data_type_t type, std::initializer_list<CGPoint> points) {
  cairo_path_data_t header;
  header.header.type = type;
  header.header.length = int(points.size() + 1);
  data_.push_back(header);
  for (const CGPoint& p : points) {
    cairo_path_data_t point;
    point.point.x = p.x;
    point.point.y = p.y;
    data_.push_back(point);
  }
}

void CGContextPath::moveTo(CGPoint p) {
  add(CAIRO_PATH_MOVE_TO, {p});
  current_ = subpathStart_ = p;
}

void CGContextPath::lineTo(CGPoint p) {
  if (!current_) return;
  add(CAIRO_PATH_LINE_TO, {p});
  current_ = p;
}

void CGContextPath::curveTo(CGPoint c1, CGPoint c2, CGPoint p) {
  if (!current_) return;
  add(CAIRO_PATH_CURVE_TO, {c1, c2, p});
  current_ = p;
}

void CGContextPath::close() {
  if (!current_) return;
  add(CAIRO_PATH_CLOSE_PATH, {});
  current_ = subpathStart_;
}

void CGContextPath::clear() {
  data_.clear();
  current_.reset();
  subpathStart_.reset();
}

void CGContextPath::appendTo(cairo_t* cr) const {
  cairo_path_t path{CAIRO_STATUS_SUCCESS, const_cast<cairo_path_data_t*>(data_.data()), int(data_.size())};
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_new_path(cr);
  cairo_append_path(cr, &path);
  cairo_restore(cr);
}

void CGContextBeginPath(const CGContextRef& c) {
  if (c) c->path().clear();
}

void CGContextMoveToPoint(const CGContextRef& c, double x, double y) {
  if (!c) return;
  if (auto p = toDevice(c, x, y)) c->path().moveTo(*p);
}

void CGContextAddLineToPoint(const CGContextRef& c, double x, double y) {
  if (!c) return;
  if (auto p = toDevice(c, x, y)) c->path().lineTo(*p);
}

void CGContextAddCurveToPoint(const CGContextRef& c, double cp1x, double cp1y, double cp2x, double cp2y, double x,
                              double y) {
  if (!c) return;
  auto c1 = toDevice(c, cp1x, cp1y), c2 = toDevice(c, cp2x, cp2y), p = toDevice(c, x, y);
  if (c1 && c2 && p) c->path().curveTo(*c1, *c2, *p);
}

// The cubic with the same curve: control points two thirds of the way from the ends to the
// quadratic's control point. Affine maps keep that relation, so it holds in device pixels too.
void CGContextAddQuadCurveToPoint(const CGContextRef& c, double cpx, double cpy, double x, double y) {
  if (!c || !c->path().currentPoint()) return;
  auto q = toDevice(c, cpx, cpy), p = toDevice(c, x, y);
  if (!q || !p) return;
  const CGPoint p0 = *c->path().currentPoint();
  auto twoThirds = [](CGPoint from, CGPoint to) {
    return CGPointMake(from.x + (to.x - from.x) * 2 / 3, from.y + (to.y - from.y) * 2 / 3);
  };
  c->path().curveTo(twoThirds(p0, *q), twoThirds(*p, *q), *p);
}

void CGContextClosePath(const CGContextRef& c) {
  if (c) c->path().close();
}

void CGContextAddRect(const CGContextRef& c, const CGRect& rect) {
  if (!c || !isFiniteRect(rect)) return;
  const double x0 = rect.origin.x, y0 = rect.origin.y, x1 = x0 + rect.size.width, y1 = y0 + rect.size.height;
  CGContextMoveToPoint(c, x0, y0);
  CGContextAddLineToPoint(c, x1, y0);
  CGContextAddLineToPoint(c, x1, y1);
  CGContextAddLineToPoint(c, x0, y1);
  CGContextClosePath(c);
}

void CGContextAddEllipseInRect(const CGContextRef& c, const CGRect& rect) {
  if (!c || !isFiniteRect(rect)) return;
  const double cx = CGRectGetMidX(rect), cy = CGRectGetMidY(rect);
  const double rx = rect.size.width / 2, ry = rect.size.height / 2;
  const double kx = rx * kQuarterCircleControl, ky = ry * kQuarterCircleControl;
  CGContextMoveToPoint(c, cx + rx, cy);
  CGContextAddCurveToPoint(c, cx + rx, cy + ky, cx + kx, cy + ry, cx, cy + ry);
  CGContextAddCurveToPoint(c, cx - kx, cy + ry, cx - rx, cy + ky, cx - rx, cy);
  CGContextAddCurveToPoint(c, cx - rx, cy - ky, cx - kx, cy - ry, cx, cy - ry);
  CGContextAddCurveToPoint(c, cx + kx, cy - ry, cx + rx, cy - ky, cx + rx, cy);
  CGContextClosePath(c);
}

// Each piece of at most a quarter turn is one cubic whose control points lie on the tangents at
// its ends, 4/3 tan(a/4) radii away: the usual close fit of a circular arc.
void CGContextAddArc(const CGContextRef& c, double x, double y, double radius, double startAngle, double endAngle,
                     int clockwise) {
  if (!c || !std::isfinite(x) || !std::isfinite(y) || !std::isfinite(radius) || radius < 0 ||
      !std::isfinite(startAngle) || !std::isfinite(endAngle))
    return;
  constexpr double kTurn = 2 * std::numbers::pi;
  double sweep = clockwise ? startAngle - endAngle : endAngle - startAngle;
  if (sweep < 0) sweep = std::fmod(sweep, kTurn) + kTurn;
  sweep = std::min(sweep, kTurn);
  auto pointAt = [&](double angle) { return CGPointMake(x + radius * std::cos(angle), y + radius * std::sin(angle)); };
  const CGPoint start = pointAt(startAngle);
  if (c->path().currentPoint()) CGContextAddLineToPoint(c, start.x, start.y);
  else CGContextMoveToPoint(c, start.x, start.y);
  const int pieces = std::max(1, int(std::ceil(sweep / (std::numbers::pi / 2) - 1e-9)));
  const double step = (clockwise ? -sweep : sweep) / pieces;
  const double reach = radius * 4.0 / 3.0 * std::tan(step / 4);
  for (int i = 0; i < pieces; ++i) {
    const double a0 = startAngle + i * step, a1 = a0 + step;
    const CGPoint p0 = pointAt(a0), p1 = pointAt(a1);
    CGContextAddCurveToPoint(c, p0.x - reach * std::sin(a0), p0.y + reach * std::cos(a0), p1.x + reach * std::sin(a1),
                             p1.y - reach * std::cos(a1), p1.x, p1.y);
  }
}

void CGContextAddLines(const CGContextRef& c, const CGPoint* points, size_t count) {
  if (!c || !points || count == 0) return;
  CGContextMoveToPoint(c, points[0].x, points[0].y);
  for (size_t i = 1; i < count; ++i) CGContextAddLineToPoint(c, points[i].x, points[i].y);
}

bool CGContextIsPathEmpty(const CGContextRef& c) { return !c || c->path().empty(); }

CGPoint CGContextGetPathCurrentPoint(const CGContextRef& c) {
  if (!c || !c->path().currentPoint()) return CGPointZero;
  CGPoint p = *c->path().currentPoint();
  cairo_device_to_user(c->cairo(), &p.x, &p.y);
  return p;
}

void CGContextSetRGBStrokeColor(const CGContextRef& c, double red, double green, double blue, double alpha) {
  if (!c) return;
  double* stroke = c->state().stroke;
  stroke[0] = red, stroke[1] = green, stroke[2] = blue, stroke[3] = alpha;
}

void CGContextSetStrokeColorWithColor(const CGContextRef& c, const CGColorRef& color) {
  if (!color) return;
  const std::vector<double>& v = color->components();
  if (v.size() == 4) CGContextSetRGBStrokeColor(c, v[0], v[1], v[2], v[3]);
  if (v.size() == 2) CGContextSetRGBStrokeColor(c, v[0], v[0], v[0], v[1]);
}

void CGContextSetLineWidth(const CGContextRef& c, double width) {
  if (c && std::isfinite(width) && width >= 0) c->state().lineWidth = width;
}

void CGContextSetLineJoin(const CGContextRef& c, CGLineJoin join) {
  if (!c) return;
  if (join == kCGLineJoinMiter) c->state().lineJoin = CAIRO_LINE_JOIN_MITER;
  if (join == kCGLineJoinRound) c->state().lineJoin = CAIRO_LINE_JOIN_ROUND;
  if (join == kCGLineJoinBevel) c->state().lineJoin = CAIRO_LINE_JOIN_BEVEL;
}

void CGContextSetLineCap(const CGContextRef& c, CGLineCap cap) {
  if (!c) return;
  if (cap == kCGLineCapButt) c->state().lineCap = CAIRO_LINE_CAP_BUTT;
  if (cap == kCGLineCapRound) c->state().lineCap = CAIRO_LINE_CAP_ROUND;
  if (cap == kCGLineCapSquare) c->state().lineCap = CAIRO_LINE_CAP_SQUARE;
}

void CGContextSetMiterLimit(const CGContextRef& c, double limit) {
  if (c && std::isfinite(limit) && limit >= 1) c->state().miterLimit = limit;
}

void CGContextSetLineDash(const CGContextRef& c, double phase, const double* lengths, size_t count) {
  if (!c || !std::isfinite(phase)) return;
  std::vector<double> dashes(lengths, lengths + (lengths ? count : 0));
  const bool valid = std::all_of(dashes.begin(), dashes.end(), [](double d) { return std::isfinite(d) && d >= 0; });
  const bool drawsSomething = std::any_of(dashes.begin(), dashes.end(), [](double d) { return d > 0; });
  if (!dashes.empty() && (!valid || !drawsSomething)) return;
  c->state().dashes = std::move(dashes);
  c->state().dashPhase = phase;
}

void CGContextDrawPath(const CGContextRef& c, CGPathDrawingMode mode) {
  if (!c || c->path().empty() || mode < kCGPathFill || mode > kCGPathEOFillStroke) return;
  const bool evenOdd = mode == kCGPathEOFill || mode == kCGPathEOFillStroke;
  const cairo_fill_rule_t rule = evenOdd ? CAIRO_FILL_RULE_EVEN_ODD : CAIRO_FILL_RULE_WINDING;
  if (mode != kCGPathStroke) paint(c, false, rule);
  if (mode == kCGPathStroke || mode == kCGPathFillStroke || mode == kCGPathEOFillStroke) paint(c, true, rule);
  c->path().clear();
}

void CGContextFillPath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathFill); }
void CGContextEOFillPath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathEOFill); }
void CGContextStrokePath(const CGContextRef& c) { CGContextDrawPath(c, kCGPathStroke); }

void CGContextStrokeRect(const CGContextRef& c, const CGRect& rect) {
  CGContextBeginPath(c);
  CGContextAddRect(c, rect);
  CGContextStrokePath(c);
}

void CGContextStrokeRectWithWidth(const CGContextRef& c, const CGRect& rect, double width) {
  if (!c) return;
  const double saved = c->state().lineWidth;
  CGContextSetLineWidth(c, width);
  CGContextStrokeRect(c, rect);
  c->state().lineWidth = saved;
}

void CGContextFillEllipseInRect(const CGContextRef& c, const CGRect& rect) {
  CGContextBeginPath(c);
  CGContextAddEllipseInRect(c, rect);
  CGContextFillPath(c);
}

void CGContextStrokeEllipseInRect(const CGContextRef& c, const CGRect& rect) {
  CGContextBeginPath(c);
  CGContextAddEllipseInRect(c, rect);
  CGContextStrokePath(c);
}

void CGContextStrokeLineSegments(const CGContextRef& c, const CGPoint* points, size_t count) {
  CGContextBeginPath(c);
  for (size_t i = 0; points && i + 1 < count; i += 2) {
    CGContextMoveToPoint(c, points[i].x, points[i].y);
    CGContextAddLineToPoint(c, points[i + 1].x, points[i + 1].y);
  }
  CGContextStrokePath(c);
}

}  // namespace brenvia
