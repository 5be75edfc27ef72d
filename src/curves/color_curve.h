#pragma once

// Tone curves: the computing form (CColorCurve, with its cached point list, byte table and image)
// and the value form (BVCurve) that filters and edit states hold.

#include "curves/curve_interpolation.h"
#include "platform/foundation/keyed_archive.h"
#include "platform/graphics/cg_image.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace brenvia {

class CColorCurve;
using CColorCurveRef = std::shared_ptr<CColorCurve>;

// A curve on 0...255 through control points (rising x), with an optional master curve. Every
// result is computed on first use and cached, so a curve must not change after it, and belongs to
// one thread at a time.
class CColorCurve : public BVCoding {
 public:
  static CColorCurveRef initWithName(std::optional<std::string> name, BVPointList points, CColorCurveRef masterCurve);
  static CColorCurveRef initWithCoder(BVKeyedUnarchiver& coder);
  // Makes the keyed unarchiver know this class.
  static void registerCodingClass();

  // One point for each input level 0...255 (for control points within that range): below the
  // first control point 0, after the last one the last point's x.
  const BVPointList& interpolatedPoints();
  // interpolatedPoints with the master curve's distance from the diagonal added to each y.
  const BVPointList& interpolatedPointsWithMasterInfluence();
  // Entry i is the output byte for input level i, the master curve applied after this one.
  const std::array<uint8_t, 256>& LUT();
  // Whether the last computed LUT maps every level to itself.
  bool identity() const { return identity_; }
  // The LUT as a 256 x 1 grey image.
  CGImageRef CGImage();
  // Exactly the two control points (0, 0) and (255, 255).
  bool isEmpty() const;

  const std::optional<std::string>& name() const { return name_; }
  const BVPointList& points() const { return points_; }
  const CColorCurveRef& masterCurve() const { return masterCurve_; }
  void setMasterCurve(CColorCurveRef masterCurve) { masterCurve_ = std::move(masterCurve); }
  const CGImageRef& image() const { return image_; }
  std::string description() const;

  std::string className() const override { return "CColorCurve"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override;

 private:
  bool identity_ = false;
  std::optional<std::string> name_;
  BVPointList points_;
  std::optional<BVPointList> interpolatedPoints_, interpolatedPointsWithMasterInfluence_;
  std::optional<std::array<uint8_t, 256>> LUT_;
  CColorCurveRef masterCurve_;
  CGImageRef image_;
};

// Flags for making a BVCurve.
using BVCurveOptions = unsigned;
inline constexpr BVCurveOptions BVCurveOptionNormalized = 1;  // points given in 0...1
inline constexpr BVCurveOptions BVCurveOptionEndPoints = 2;   // (0, 0) and (255, 255) added

// An immutable curve value: control points on 0...255 (never none) and an optional master curve.
class BVCurve {
 public:
  // The identity: (0, 0) and (255, 255).
  BVCurve() : BVCurve({}, nullptr, 0) {}
  BVCurve(const BVPointList& points, std::shared_ptr<const BVCurve> masterCurve, BVCurveOptions options);

  const BVPointList& points() const { return points_; }
  const std::shared_ptr<const BVCurve>& masterCurve() const { return masterCurve_; }
  // The points joined with ", ".
  std::string description() const;
  // The same points with a copy of the master curve.
  BVCurve copy() const;

 private:
  BVPointList points_;
  std::shared_ptr<const BVCurve> masterCurve_;
};

}  // namespace brenvia
