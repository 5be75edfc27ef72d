#pragma once

#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_color.h"
#include "platform/graphics/cg_context.h"

#include <memory>
#include <vector>

namespace brenvia {

// Colour stops of a gradient: straight RGBA colours at locations from 0 to 1.
class CGGradient {
 public:
  struct Stop {
    double location;
    double rgba[4];
  };
  explicit CGGradient(std::vector<Stop> stops) : stops_(std::move(stops)) {}
  const std::vector<Stop>& stops() const { return stops_; }

 private:
  std::vector<Stop> stops_;
};

using CGGradientRef = std::shared_ptr<const CGGradient>;

using CGGradientDrawingOptions = uint32_t;
inline constexpr CGGradientDrawingOptions kCGGradientDrawsBeforeStartLocation = 1;
inline constexpr CGGradientDrawingOptions kCGGradientDrawsAfterEndLocation = 2;

// `components` holds `count` colours of the space's channels plus alpha. Without locations the
// stops are evenly spaced. Null without a space or colours.
CGGradientRef CGGradientCreateWithColorComponents(const CGColorSpaceRef& space, const double* components,
                                                  const double* locations, size_t count);
CGGradientRef CGGradientCreateWithColors(const CGColorSpaceRef& space, const std::vector<CGColorRef>& colors,
                                         const double* locations = nullptr);

// Fill the clip with the gradient along the line, or between the two circles. The colour beyond
// the ends is drawn only as the options ask.
void CGContextDrawLinearGradient(const CGContextRef& c, const CGGradientRef& gradient, CGPoint start, CGPoint end,
                                 CGGradientDrawingOptions options);
void CGContextDrawRadialGradient(const CGContextRef& c, const CGGradientRef& gradient, CGPoint startCenter,
                                 double startRadius, CGPoint endCenter, double endRadius,
                                 CGGradientDrawingOptions options);

}  // namespace brenvia
