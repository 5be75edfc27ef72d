#include "platform/coreimage/ops/op_support.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <optional>

namespace brenvia::ci {
namespace {

// 3 × 3 matrices on homogeneous points (x, y, 1), row-major.
using Matrix3 = std::array<double, 9>;

Matrix3 multiply(const Matrix3& a, const Matrix3& b) {
  Matrix3 r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[size_t(3 * i + j)] += a[size_t(3 * i + k)] * b[size_t(3 * k + j)];
  return r;
}

std::optional<Matrix3> invert(const Matrix3& m) {
  Matrix3 adj{m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
              m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
              m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
  double det = m[0] * adj[0] + m[1] * adj[3] + m[2] * adj[6];
  if (det == 0 || !std::isfinite(det)) return std::nullopt;
  for (double& v : adj) v /= det;
  return adj;
}

// The projective map of the unit square onto the quadrilateral P00 = bottom left, P10 = bottom
// right, P11 = top right, P01 = top left (Heckbert's square-to-quad construction).
std::optional<Matrix3> squareToQuad(CGPoint p00, CGPoint p10, CGPoint p11, CGPoint p01) {
  const double x0 = p00.x, x1 = p10.x, x2 = p11.x, x3 = p01.x;
  const double y0 = p00.y, y1 = p10.y, y2 = p11.y, y3 = p01.y;
  const double sx = x0 - x1 + x2 - x3, sy = y0 - y1 + y2 - y3;
  double g = 0, h = 0;
  if (sx != 0 || sy != 0) {
    const double dx1 = x1 - x2, dx2 = x3 - x2, dy1 = y1 - y2, dy2 = y3 - y2;
    const double den = dx1 * dy2 - dy1 * dx2;
    if (den == 0) return std::nullopt;
    g = (sx * dy2 - sy * dx2) / den;
    h = (dx1 * sy - dy1 * sx) / den;
  }
  Matrix3 m{x1 - x0 + g * x1, x3 - x0 + h * x3, x0, y1 - y0 + g * y1, y3 - y0 + h * y3, y0, g, h, 1};
  for (double v : m)
    if (!std::isfinite(v)) return std::nullopt;
  return m;
}

// The image of a point; nothing when it lies on or behind the horizon of the map.
std::optional<CGPoint> apply(const Matrix3& m, double x, double y) {
  double w = m[6] * x + m[7] * y + m[8];
  if (!(w > 0)) return std::nullopt;
  return CGPoint{(m[0] * x + m[1] * y + m[2]) / w, (m[3] * x + m[4] * y + m[5]) / w};
}

// Bounding box of the images of the rectangle's corners; nothing when a corner does not map (the
// image of the rectangle is then unbounded).
std::optional<CGRect> mappedBounds(const Matrix3& m, const CGRect& r) {
  CGRect bounds = CGRectNull;
  for (double x : {CGRectGetMinX(r), CGRectGetMaxX(r)}) {
    for (double y : {CGRectGetMinY(r), CGRectGetMaxY(r)}) {
      auto p = apply(m, x, y);
      if (!p) return std::nullopt;
      bounds = CGRectUnion(bounds, CGRectMake(p->x, p->y, 0, 0));
    }
  }
  return bounds;
}

// How many source pixels one output pixel spans at output point (x, y), along its wider axis.
double shrinkAt(const Matrix3& m, double x, double y) {
  const double w = m[6] * x + m[7] * y + m[8];
  if (!(w > 0)) return 1;
  const double sx = (m[0] * x + m[1] * y + m[2]) / w, sy = (m[3] * x + m[4] * y + m[5]) / w;
  const double dxdx = (m[0] - m[6] * sx) / w, dydx = (m[3] - m[6] * sy) / w;
  const double dxdy = (m[1] - m[7] * sx) / w, dydy = (m[4] - m[7] * sy) / w;
  return std::max(std::hypot(dxdx, dydx), std::hypot(dxdy, dydy));
}

// Supersampling enough for the strongest shrink at the picture's corners in the output (a
// projective map shrinks most at a corner of a convex region), at most 4 × 4 samples.
int samplesFor(const Matrix3& outputToSource, std::initializer_list<CGPoint> outputCorners) {
  double shrink = 1;
  for (CGPoint p : outputCorners) shrink = std::max(shrink, shrinkAt(outputToSource, p.x, p.y));
  return std::isfinite(shrink) && shrink > 1.05 ? int(std::min(std::ceil(shrink), 4.0)) : 1;
}

// Output point -> source point through a projective map; points beyond its horizon are transparent.
class ProjectiveWarp final : public WarpKernel {
 public:
  // `fallback` is read when a requested rectangle reaches the horizon.
  ProjectiveWarp(std::string_view name, const Matrix3& outputToSource, const CGRect& sourceExtent,
                 const CGRect& fallback, int samplesPerAxis)
      : name_(name), m_(outputToSource), source_(sourceExtent), fallback_(fallback), samples_(samplesPerAxis) {}
  std::string_view name() const override { return name_; }
  int samplesPerAxis() const override { return samples_; }

  void map(int64_t x, int64_t y, int n, CGPoint at, float* sx, float* sy) const override {
    const double py = double(y) + at.y;
    const double bx = m_[1] * py + m_[2], by = m_[4] * py + m_[5], bw = m_[7] * py + m_[8];
    for (int i = 0; i < n; ++i) {
      double px = double(x + i) + at.x;
      double w = m_[6] * px + bw;
      bool visible = w > 0;
      double k = visible ? 1.0 / w : 0.0;
      sx[i] = visible ? float((m_[0] * px + bx) * k) : NAN;
      sy[i] = visible ? float((m_[3] * px + by) * k) : NAN;
    }
  }
  CGRect roi(const CGRect& out) const override {
    auto bounds = mappedBounds(m_, out);
    return CGRectIntersection(bounds ? *bounds : fallback_, source_);
  }

 private:
  std::string_view name_;
  Matrix3 m_;
  CGRect source_, fallback_;
  int samples_;
};

CGPoint point(const CIFilter& f, std::string_view key) { return f.vector(key).CGPointValue(); }

double distance(CGPoint a, CGPoint b) { return std::hypot(a.x - b.x, a.y - b.y); }

std::vector<CIInputSpec> cornerInputs() {
  return {imageInput(), vectorInput("inputTopLeft", {118, 484}), vectorInput("inputTopRight", {646, 507}),
          vectorInput("inputBottomRight", {548, 140}), vectorInput("inputBottomLeft", {155, 153})};
}

}  // namespace

// Moves the corners of the input's extent to the four points.
void registerPerspectiveTransform() {
  CIFilter::registerOperation(
      "CIPerspectiveTransform",
      {"Perspective Transform", builtinCategories({kCICategoryGeometryAdjustment}), cornerInputs()},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        const CGRect e = input->extent();
        // The map is defined by the corners of the extent, which an infinite image does not have.
        if (CGRectIsEmpty(e) || CGRectIsInfinite(e)) return CIImage::emptyImage();
        CGPoint tl = point(f, "inputTopLeft"), tr = point(f, "inputTopRight"), br = point(f, "inputBottomRight"),
                bl = point(f, "inputBottomLeft");
        auto quad = squareToQuad(bl, br, tr, tl);
        auto toSquare = quad ? invert(*quad) : std::nullopt;
        if (!toSquare) return CIImage::emptyImage();
        const Matrix3 squareToExtent{e.size.width, 0, e.origin.x, 0, e.size.height, e.origin.y, 0, 0, 1};
        CGRect extent = CGRectNull;
        for (CGPoint p : {tl, tr, br, bl}) extent = CGRectUnion(extent, CGRectMake(p.x, p.y, 0, 0));
        const Matrix3 m = multiply(squareToExtent, *toSquare);
        auto warp =
            std::make_shared<ProjectiveWarp>("CIPerspectiveTransform", m, e, e, samplesFor(m, {tl, tr, br, bl}));
        return CIImage::makeWarp(std::move(warp), input, extent);
      });
}

// Maps the quadrilateral given by the four points to an upright rectangle at the points' lower
// left, as wide and as high as the longer of its opposite edges.
void registerPerspectiveCorrection() {
  auto inputs = cornerInputs();
  inputs.push_back(numberInput("inputCrop", 1.0));
  CIFilter::registerOperation(
      "CIPerspectiveCorrection",
      {"Perspective Correction", builtinCategories({kCICategoryGeometryAdjustment}), std::move(inputs)},
      [](const CIFilter& f) -> CIImageRef {
        CIImageRef input = f.image("inputImage");
        if (!input) return nullptr;
        CGPoint tl = point(f, "inputTopLeft"), tr = point(f, "inputTopRight"), br = point(f, "inputBottomRight"),
                bl = point(f, "inputBottomLeft");
        const double w = std::max(distance(tr, tl), distance(br, bl));
        const double h = std::max(distance(tl, bl), distance(tr, br));
        const double ox = std::min({tl.x, tr.x, br.x, bl.x}), oy = std::min({tl.y, tr.y, br.y, bl.y});
        auto quad = squareToQuad(bl, br, tr, tl);
        if (!quad || !(w > 0) || !(h > 0)) return CIImage::emptyImage();
        const Matrix3 rectangleToSquare{1 / w, 0, -ox / w, 0, 1 / h, -oy / h, 0, 0, 1};
        const Matrix3 m = multiply(*quad, rectangleToSquare);
        const CGRect e = input->extent(), rectangle = CGRectMake(ox, oy, w, h);
        CGRect extent = rectangle;
        if (!f.boolean("inputCrop")) {
          auto forward = invert(m);
          auto bounds = forward && !CGRectIsInfinite(e) ? mappedBounds(*forward, e) : std::nullopt;
          extent = bounds ? *bounds : CGRectInfinite;
        }
        // Beyond the horizon the source is unbounded; an infinite input is then read around the quadrilateral.
        CGRect quadBounds = CGRectNull;
        for (CGPoint p : {tl, tr, br, bl}) quadBounds = CGRectUnion(quadBounds, CGRectMake(p.x, p.y, 0, 0));
        CGRect fallback = CGRectIsInfinite(e) ? quadBounds : e;
        const int samples = samplesFor(m, {{ox, oy}, {ox + w, oy}, {ox, oy + h}, {ox + w, oy + h}});
        auto warp = std::make_shared<ProjectiveWarp>("CIPerspectiveCorrection", m, e, fallback, samples);
        return CIImage::makeWarp(std::move(warp), input, extent);
      });
}

}  // namespace brenvia::ci
