#include "platform/coreimage/engine/vector_clones.h"
#include "platform/coreimage/ops/op_support.h"

#include <cmath>

namespace brenvia::ci {
namespace {

// Points (dx + i, dy) relative to the centre (cx, cy), turned and scaled by (cos, sin), in absolute coordinates.
BV_VECTOR_CLONES void turnRow(double dx, double dy, int n, double cx, double cy, double cos, double sin, float* sx,
                              float* sy) {
  for (int i = 0; i < n; ++i) {
    const double u = dx + double(i);
    sx[i] = float(cx + cos * u + sin * dy);
    sy[i] = float(cy - sin * u + cos * dy);
  }
}

// Rotates about the centre of the extent and enlarges just enough for the turned picture to cover
// the whole extent: output point p reads k + R(−θ)·(p − k) / scale.
class StraightenWarp final : public WarpKernel {
 public:
  StraightenWarp(const CGRect& extent, double angle, double scale)
      : extent_(extent),
        cx_(CGRectGetMidX(extent)),
        cy_(CGRectGetMidY(extent)),
        cos_(std::cos(angle) / scale),
        sin_(std::sin(angle) / scale) {}
  std::string_view name() const override { return "CIStraightenFilter"; }

  void map(int64_t x, int64_t y, int n, CGPoint at, float* sx, float* sy) const override {
    turnRow(double(x) + at.x - cx_, double(y) + at.y - cy_, n, cx_, cy_, cos_, sin_, sx, sy);
  }
  CGRect roi(const CGRect& out) const override {
    CGAffineTransform inverse{cos_, -sin_, sin_, cos_, 0, 0};
    inverse.tx = cx_ - cos_ * cx_ - sin_ * cy_;
    inverse.ty = cy_ + sin_ * cx_ - cos_ * cy_;
    return CGRectIntersection(CGRectApplyAffineTransform(out, inverse), extent_);
  }

 private:
  CGRect extent_;
  double cx_, cy_, cos_, sin_;
};

// The smallest enlargement that lets a W × H picture turned by `angle` cover its own extent.
double straightenScale(double width, double height, double angle) {
  double c = std::abs(std::cos(angle)), s = std::abs(std::sin(angle));
  return std::max(c + height / width * s, c + width / height * s);
}

}  // namespace

void registerStraightenFilter() {
  CIFilter::registerOperation("CIStraightenFilter",
                              {"Straighten",
                               builtinCategories({kCICategoryGeometryAdjustment}),
                               {imageInput(), numberInput("inputAngle", 0.0)}},
                              [](const CIFilter& f) -> CIImageRef {
                                CIImageRef input = f.image("inputImage");
                                if (!input) return nullptr;
                                const double angle = f.number("inputAngle");
                                const CGRect e = input->extent();
                                if (angle == 0 || !std::isfinite(angle) || CGRectIsEmpty(e)) return input;
                                double scale = straightenScale(e.size.width, e.size.height, angle);
                                // The output's corners sample the input's very edge; reading its edge pixels beyond the
                                // border keeps them opaque instead of half blended with the transparent outside.
                                return CIImage::makeWarp(std::make_shared<StraightenWarp>(e, angle, scale),
                                                         input->imageByClampingToExtent(), e);
                              });
}

}  // namespace brenvia::ci
