#include "curves/curve_interpolation.h"

#include <cmath>

namespace brenvia {

std::vector<double> secondDerivative(const BVPointList& p) {
  const size_t n = p.size();
  if (n == 0) return {};
  // Tridiagonal rows: sub-diagonal, diagonal, super-diagonal and right side. The first and last
  // rows say m = 0 (a natural spline).
  std::vector<double> sub(n, 0), diag(n, 1), super(n, 0), right(n, 0);
  for (size_t i = 1; i + 1 < n; ++i) {
    sub[i] = (p[i].x - p[i - 1].x) / 6;
    diag[i] = (p[i + 1].x - p[i - 1].x) / 3;
    super[i] = (p[i + 1].x - p[i].x) / 6;
    right[i] = (p[i + 1].y - p[i].y) / (p[i + 1].x - p[i].x) - (p[i].y - p[i - 1].y) / (p[i].x - p[i - 1].x);
  }
  for (size_t i = 1; i < n; ++i) {
    double k = sub[i] / diag[i - 1];
    diag[i] -= k * super[i - 1];
    sub[i] = 0;
    right[i] -= k * right[i - 1];
  }
  for (size_t i = n - 1; i-- > 0;) {
    double k = super[i] / diag[i + 1];
    super[i] = 0;
    right[i] -= k * right[i + 1];
  }
  std::vector<double> m(n);
  for (size_t i = 0; i < n; ++i) m[i] = right[i] / diag[i];
  return m;
}

BVPointList curve(const BVPointList& p) {
  if (p.size() < 2) return {};
  const std::vector<double> m = secondDerivative(p);
  BVPointList samples;
  for (size_t i = 0; i + 1 < p.size(); ++i) {
    const double h = p[i + 1].x - p[i].x;
    // Curves live on 0...255; a segment far wider than any 16-bit axis is damaged input and is
    // not sampled (it could hold billions of samples, or never end).
    if (!(p[i + 1].x - std::trunc(p[i].x) <= kBVMaxCurveSpan)) continue;
    for (double x = std::trunc(p[i].x); x < p[i + 1].x; x += 1) {
      double t = (x - p[i].x) / h, a = 1 - t;
      double y = (t * p[i + 1].y + a * p[i].y) + (h * h / 6) * ((a * a * a - a) * m[i] + (t * t * t - t) * m[i + 1]);
      samples.push_back({x, y});
    }
  }
  return samples;
}

BVPointList PointsInCurve(const BVPointList& points) {
  if (points.empty()) return {};
  BVPointList rounded;
  rounded.reserve(points.size());
  for (const CGPoint& p : points) rounded.push_back({std::round(p.x), std::round(p.y)});
  BVPointList samples = curve(rounded);
  samples.push_back(points.back());
  return samples;
}

void EnumeratePointsInCurve(const BVPointList& points, const std::function<void(double x, double y)>& callback) {
  if (points.empty()) return;
  for (const CGPoint& p : curve(points)) callback(p.x, p.y);
  callback(points.back().x, points.back().y);
}

}  // namespace brenvia
