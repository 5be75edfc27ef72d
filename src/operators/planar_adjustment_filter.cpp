#include "operators/planar_adjustment_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/foundation/once.h"

#include <algorithm>
#include <array>

namespace brenvia {
namespace {

// Corners relative to the extent, y up: top left, top right, bottom left, bottom right.
using Corners = std::array<CGPoint, 4>;
constexpr Corners kIdentityCorners{{{0, 1}, {1, 1}, {0, 0}, {1, 0}}};

// CIPerspectiveTransform moves the picture's corners to the points; CIPerspectiveCorrection maps the
// quadrilateral of the points to a rectangle.
CIImageRef perspective(std::string_view suffix, const CIImageRef& image, const Corners& relative) {
  const CGRect e = image->extent();
  auto at = [&](CGPoint p) {
    return CIVector::vectorWithXY(e.origin.x + e.size.width * p.x, e.origin.y + e.size.height * p.y);
  };
  return image->imageByApplyingFilter("CIPerspective" + std::string(suffix), {{"inputTopLeft", at(relative[0])},
                                                                              {"inputTopRight", at(relative[1])},
                                                                              {"inputBottomLeft", at(relative[2])},
                                                                              {"inputBottomRight", at(relative[3])}});
}

// The stretched picture keeps the aspect ratio and the centre of the picture before the stretch.
CIImageRef stretched(const CIImageRef& image, float h, float v) {
  const Corners corners{{{-h, 1 + v}, {1 + h, 1 + v}, {-h, -v}, {1 + h, -v}}};
  CIImageRef out = perspective("Transform", image, corners);
  if (!out) return nullptr;
  const CGSize before = image->extent().size;
  const CGRect e = out->extent();
  const double scale = std::min(e.size.width / before.width, e.size.height / before.height);
  const CGSize fitted{before.width * scale, before.height * scale};
  return out->imageByCroppingToRect(CGRectMake(e.origin.x + (e.size.width - fitted.width) / 2,
                                               e.origin.y + (e.size.height - fitted.height) / 2, fitted.width,
                                               fitted.height));
}

// A negative horizontal skew spreads the top corners, a positive one the bottom corners; a negative
// vertical skew spreads the left corners, a positive one the right corners.
CIImageRef skewed(const CIImageRef& image, float h, float v) {
  Corners c = kIdentityCorners;
  if (h < 0) c[0].x -= -h, c[1].x += -h;
  if (h > 0) c[2].x -= h, c[3].x += h;
  if (v < 0) c[0].y += -v, c[2].y -= -v;
  if (v > 0) c[1].y += v, c[3].y -= v;
  return perspective("Correction", image, c);
}

}  // namespace

CIImageRef BVPlanarAdjustmentImage(const CIImageRef& image, const BVPlanarAdjustmentInputs& in) {
  CIImageRef result = image;
  if (result && in.rotation != 0) {
    result = result->imageByApplyingFilter("CIStraightenFilter", {{"inputAngle", double(in.rotation)}});
  }
  if (result && (in.horizontalStretch != 0 || in.verticalStretch != 0)) {
    result = stretched(result, in.horizontalStretch, in.verticalStretch);
  }
  if (result && (in.horizontalSkew != 0 || in.verticalSkew != 0)) {
    result = skewed(result, in.horizontalSkew, in.verticalSkew);
  }
  return result;
}

void BVRegisterPlanarAdjustmentCIFilter() {
  static BVOnce once;
  once([] {
    CIFilter::registerOperation(
        std::string(kBVPlanarAdjustmentCIFilterName),
        {"Planar Adjustment",
         {std::string(kCICategoryGeometryAdjustment), std::string(kCICategoryStillImage)},
         {ci::imageInput(), ci::numberInput("inputRotation", 0), ci::numberInput("inputVerticalSkew", 0),
          ci::numberInput("inputHorizontalSkew", 0), ci::numberInput("inputVerticalStretch", 0),
          ci::numberInput("inputHorizontalStretch", 0)}},
        [](const CIFilter& f) {
          return BVPlanarAdjustmentImage(
              f.image("inputImage"), {float(f.number("inputRotation")), float(f.number("inputVerticalSkew")),
                                      float(f.number("inputHorizontalSkew")), float(f.number("inputVerticalStretch")),
                                      float(f.number("inputHorizontalStretch"))});
        });
  });
}

}  // namespace brenvia
