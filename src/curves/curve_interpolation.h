#pragma once

// Natural cubic splines through a curve's control points, sampled at whole input levels.

#include "platform/geometry/geometry.h"

#include <functional>
#include <vector>

namespace brenvia {

using BVPointList = std::vector<CGPoint>;

// The widest stretch of input levels a curve is sampled over: twice a 16-bit axis.
inline constexpr double kBVMaxCurveSpan = 131072;

// The spline's second derivative at each of the points (ordered by rising x); 0 at both ends.
std::vector<double> secondDerivative(const BVPointList& points);
// The spline sampled at each integer x of [first x, last x): the last point itself is not sampled.
// Nothing with fewer than two points.
BVPointList curve(const BVPointList& points);
// The samples of the spline through the points rounded to whole numbers, then the last point as
// given. Nothing for no points.
BVPointList PointsInCurve(const BVPointList& points);
// The samples of the spline through the points as given, then the last point, one at a time.
void EnumeratePointsInCurve(const BVPointList& points, const std::function<void(double x, double y)>& callback);

}  // namespace brenvia
