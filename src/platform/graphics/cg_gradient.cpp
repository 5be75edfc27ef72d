#include "platform/graphics/cg_gradient.h"

#include "platform/graphics/cairo_support.h"

namespace brenvia {
namespace {

CGGradient::Stop stopOf(const double* color, size_t channels, double location) {
  CGGradient::Stop stop{location, {}};
  for (int i = 0; i < 3; ++i) stop.rgba[i] = color[channels == 1 ? 0 : i];
  stop.rgba[3] = color[channels];
  return stop;
}

double locationAt(const double* locations, size_t i, size_t count) {
  if (locations) return locations[i];
  return count > 1 ? double(i) / double(count - 1) : 0.0;
}

// Cairo can only pad both ends or neither: either option pads.
void drawPattern(const CGContextRef& c, cairo_pattern_t* pattern, const CGGradient& gradient,
                 CGGradientDrawingOptions options) {
  // A pattern of non-finite geometry would stop the context drawing for good.
  if (cairo_pattern_status(pattern) != CAIRO_STATUS_SUCCESS) return cairo_pattern_destroy(pattern);
  for (const CGGradient::Stop& s : gradient.stops()) {
    cairo_pattern_add_color_stop_rgba(pattern, s.location, s.rgba[0], s.rgba[1], s.rgba[2], s.rgba[3]);
  }
  const bool extend = options & (kCGGradientDrawsBeforeStartLocation | kCGGradientDrawsAfterEndLocation);
  cairo_pattern_set_extend(pattern, extend ? CAIRO_EXTEND_PAD : CAIRO_EXTEND_NONE);
  c->draw([&](cairo_t* cr) {
    cairo_set_source(cr, pattern);
    cairo_paint(cr);
  });
  cairo_pattern_destroy(pattern);
}

}  // namespace

CGGradientRef CGGradientCreateWithColorComponents(const CGColorSpaceRef& space, const double* components,
                                                  const double* locations, size_t count) {
  if (!space || !components || count == 0) return nullptr;
  const size_t channels = space->model() == CGColorSpaceModel::RGB ? 3 : 1;
  std::vector<CGGradient::Stop> stops;
  for (size_t i = 0; i < count; ++i) {
    stops.push_back(stopOf(components + i * (channels + 1), channels, locationAt(locations, i, count)));
  }
  return std::make_shared<CGGradient>(std::move(stops));
}

CGGradientRef CGGradientCreateWithColors(const CGColorSpaceRef&, const std::vector<CGColorRef>& colors,
                                         const double* locations) {
  if (colors.empty()) return nullptr;
  std::vector<CGGradient::Stop> stops;
  for (size_t i = 0; i < colors.size(); ++i) {
    if (!colors[i]) return nullptr;
    const std::vector<double>& v = colors[i]->components();
    stops.push_back(stopOf(v.data(), v.size() - 1, locationAt(locations, i, colors.size())));
  }
  return std::make_shared<CGGradient>(std::move(stops));
}

void CGContextDrawLinearGradient(const CGContextRef& c, const CGGradientRef& gradient, CGPoint start, CGPoint end,
                                 CGGradientDrawingOptions options) {
  if (!c || !gradient) return;
  drawPattern(c, cairo_pattern_create_linear(start.x, start.y, end.x, end.y), *gradient, options);
}

void CGContextDrawRadialGradient(const CGContextRef& c, const CGGradientRef& gradient, CGPoint startCenter,
                                 double startRadius, CGPoint endCenter, double endRadius,
                                 CGGradientDrawingOptions options) {
  if (!c || !gradient) return;
  drawPattern(c,
              cairo_pattern_create_radial(startCenter.x, startCenter.y, startRadius, endCenter.x, endCenter.y,
                                          endRadius),
              *gradient, options);
}

}  // namespace brenvia
