#pragma once

#include "image/image_orientation.h"
#include "platform/coreimage/ci_image.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brenvia {

class BVKeyedArchiver;
class BVKeyedUnarchiver;
class CIFilter;

// A crop of the turned picture, in pixels, origin at the top left. The rotation travels with the
// crop; the geometry does not read it.
struct BVImageCrop {
  CGRect rect;
  double rotation;
};

// Straightening (degrees), keystone corrections relative to the size (the sign picks the edge) and
// stretches relative to the size on each side, in this order.
struct BVPlanarAdjustment {
  double rotation, horizontalSkew, verticalSkew, horizontalStretch, verticalStretch;
};

// Clockwise quarter turns of the canvas, 0 to 3.
using BVImageOrientationAdjustment = uint8_t;

inline constexpr BVImageCrop BVImageCropZero{{0, 0, 0, 0}, 0};
// Sentinels asking for the largest square of the picture, anchored at the start, the middle or the
// end of its longer side (the end of a landscape picture is its middle). Only an exact match counts.
inline constexpr double kBVSmallestNormalFloat = 1.1754943508222875e-38;
inline constexpr double kBVLargestFloat = 3.4028234663852886e+38;
inline constexpr BVImageCrop BVImageCropSquareMin{
    {kBVSmallestNormalFloat, kBVSmallestNormalFloat, kBVSmallestNormalFloat, kBVSmallestNormalFloat}, 0};
inline constexpr BVImageCrop BVImageCropSquareMedian{{-1, -1, -1, -1}, 0};
inline constexpr BVImageCrop BVImageCropSquareMax{{kBVLargestFloat, kBVLargestFloat, kBVLargestFloat, kBVLargestFloat},
                                                  0};
inline constexpr BVPlanarAdjustment BVPlanarAdjustmentZero{0, 0, 0, 0, 0};

BVImageCrop BVImageCropMake(double x, double y, double width, double height, double rotation);
bool BVImageCropEqualToCrop(const BVImageCrop& a, const BVImageCrop& b);
// The rectangle scaled about the origin; the rotation stays.
BVImageCrop BVImageCropScale(const BVImageCrop& crop, double scale);
// "{x, y} {width, height}, rotation}" with the rectangle's numbers truncated.
std::string NSStringFromBVImageCrop(const BVImageCrop& crop);

// Note the order: the vertical stretch comes before the horizontal one here.
BVPlanarAdjustment BVPlanarAdjustmentMake(double rotation, double horizontalSkew, double verticalSkew,
                                          double verticalStretch, double horizontalStretch);
BVPlanarAdjustment BVPlanarAdjustmentMakeWithRotation(double rotation);
BVPlanarAdjustment BVPlanarAdjustmentMakeWithRotationAndSkew(double rotation, double horizontalSkew,
                                                             double verticalSkew);
bool BVPlanarAdjustmentEqual(const BVPlanarAdjustment& a, const BVPlanarAdjustment& b);
std::string NSStringFromBVPlanarAdjustment(const BVPlanarAdjustment& planar);

// One more clockwise quarter turn; values outside 0 to 3 become 1.
BVImageOrientationAdjustment BVImageOrientationAdjustmentAdd90CW(BVImageOrientationAdjustment adjustment);
// "None", "90CW", "180", "90CCW (270)"; other values print "None".
std::string NSStringFromBVImageOrientationAdjustment(BVImageOrientationAdjustment adjustment);
bool BVImageOrientationIsPortrait(BVImageOrientation orientation);
bool BVImageOrientationIsLandscape(BVImageOrientation orientation);
bool BVImageOrientationIsMirrored(BVImageOrientation orientation);

// Stored forms. The keyed form is a dictionary with every field (rect as "{{x, y}, {w, h}}"); a
// missing or mistyped key gives nothing. The legacy form is the five doubles, little-endian.
Value BVImageCropToValue(const BVImageCrop& crop);
std::optional<BVImageCrop> BVImageCropFromValue(const Value& value);
Value BVPlanarAdjustmentToValue(const BVPlanarAdjustment& planar);
std::optional<BVPlanarAdjustment> BVPlanarAdjustmentFromValue(const Value& value);
std::vector<uint8_t> BVImageCropLegacyData(const BVImageCrop& crop);
std::vector<uint8_t> BVPlanarAdjustmentLegacyData(const BVPlanarAdjustment& planar);
// Exactly 40 bytes, else nothing.
std::optional<BVImageCrop> BVImageCropFromLegacyData(const std::vector<uint8_t>& data);
std::optional<BVPlanarAdjustment> BVPlanarAdjustmentFromLegacyData(const std::vector<uint8_t>& data);
// The coder's forms: a data object of the legacy bytes. Reading takes 40 bytes as doubles and 20 as
// single-precision floats; anything else, a missing key included, reads as all zeros.
void BVEncodeImageCrop(BVKeyedArchiver& coder, const BVImageCrop& crop, std::string_view key);
void BVEncodePlanarAdjustment(BVKeyedArchiver& coder, const BVPlanarAdjustment& planar, std::string_view key);
BVImageCrop BVDecodeImageCrop(BVKeyedUnarchiver& coder, std::string_view key);
BVPlanarAdjustment BVDecodePlanarAdjustment(BVKeyedUnarchiver& coder, std::string_view key);

// The geometry an edit asks for: quarter turns, a crop and a planar correction. Shared, not copied,
// by the pictures that hold it.
class BVCanvasAdjustment {
 public:
  static std::shared_ptr<BVCanvasAdjustment> identityAdjustment();
  static std::shared_ptr<BVCanvasAdjustment> adjustmentWithCrop(const BVImageCrop& crop);
  // The crop is the centred square sentinel.
  static std::shared_ptr<BVCanvasAdjustment> adjustmentWithOrientation(BVImageOrientationAdjustment orientation);
  static std::shared_ptr<BVCanvasAdjustment> adjustmentWithCrop(
      const BVImageCrop& crop, BVImageOrientationAdjustment orientation,
      const BVPlanarAdjustment& planar = BVPlanarAdjustmentZero);

  BVImageOrientationAdjustment orientation() const { return orientation_; }
  void setOrientation(BVImageOrientationAdjustment orientation) { orientation_ = orientation; }
  const BVImageCrop& crop() const { return crop_; }
  void setCrop(const BVImageCrop& crop) { crop_ = crop; }
  const BVPlanarAdjustment& planar() const { return planar_; }
  void setPlanar(const BVPlanarAdjustment& planar) { planar_ = planar; }

  bool isIdentity() const;
  // A null adjustment counts as all zeros, so it equals the identity.
  bool isEqualToCanvasAdjustment(const BVCanvasAdjustment* other) const;
  // The ten numbers truncated to unsigned integers (negative ones count as 0), plus the orientation.
  uint64_t hash() const;
  std::string description() const;

 private:
  BVImageOrientationAdjustment orientation_ = 0;
  BVImageCrop crop_ = BVImageCropZero;
  BVPlanarAdjustment planar_ = BVPlanarAdjustmentZero;
};

// The picture that filters work on, built in a fixed order: the source orientation turned by the
// adjustment's quarter turns (always applied), the crop (square sentinels resolved against the turned
// picture), the planar correction trimmed back to the crop's size about its centre, then the scale.
// A raw decoder scales by itself: with one, the crop is scaled instead and no scale step is added.
CIImageRef BVImageWithCanvasAdjustment(const CIImageRef& image, const BVCanvasAdjustment* adjustment,
                                       double scaleAdjustment, BVImageOrientation sourceOrientation,
                                       const CIFilter* rawFilter = nullptr);

// The crop's rectangle in the engine's coordinates (y up) for a turned picture of `size`.
CGRect BVResolvedCropRect(const BVImageCrop& crop, CGSize size);

}  // namespace brenvia
