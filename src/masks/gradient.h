#pragma once

#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_image.h"
#include "platform/foundation/keyed_archive.h"
#include "platform/foundation/value.h"
#include "platform/graphics/cg_context.h"
#include "platform/graphics/cg_gradient.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace brenvia {

class CIFilter;

inline constexpr std::string_view kBVFilterGradientKey = "gradient";
inline constexpr std::string_view kBVFilterGradientTypeKey = "type";
inline constexpr std::string_view kBVFilterGradientColorsKey = "colors";
inline constexpr std::string_view kBVFilterGradientLocationsKey = "locations";
inline constexpr std::string_view kBVFilterGradientRotationKey = "rotation";
inline constexpr std::string_view kBVFilterGradientRadiusScalingModeKey = "radiusScaling";
inline constexpr std::string_view kBVFilterGradientDirectionKey = "direction";
inline constexpr std::string_view kBVFilterGradientStartPointXKey = "startPointX";
inline constexpr std::string_view kBVFilterGradientStartPointYKey = "startPointY";
inline constexpr std::string_view kBVFilterGradientEndPointXKey = "endPointX";
inline constexpr std::string_view kBVFilterGradientEndPointYKey = "endPointY";
inline constexpr std::string_view kBVFilterGradientStartCenterXKey = "startCenterX";
inline constexpr std::string_view kBVFilterGradientStartCenterYKey = "startCenterY";
inline constexpr std::string_view kBVFilterGradientStartRadiusKey = "startRadius";
inline constexpr std::string_view kBVFilterGradientEndCenterXKey = "endCenterX";
inline constexpr std::string_view kBVFilterGradientEndCenterYKey = "endCenterY";
inline constexpr std::string_view kBVFilterGradientEndRadiusKey = "endRadius";
inline constexpr std::string_view kBVFilterColorAlphaKey = "colorAlpha";

enum BVGradientDirection : int32_t { BVGradientDirectionVertical = 0, BVGradientDirectionHorizontal = 1 };

// A colour ramp in coordinates relative to the target: x runs over its width, y over its height, and
// radii over the size the radius scaling mode picks (the longer side for fill, else the shorter).
// Drawn on a bitmap context it takes any number of stops at their locations, beyond both ends; as an
// engine image it takes the first two colours only.
class BVGradient : public BVCoding {
 public:
  // A radial gradient when `type` is "radial", otherwise a linear one.
  static std::shared_ptr<BVGradient> gradientWithParameters(const Value& parameters);

  // 0 for the base, 1 linear, 2 radial.
  virtual int type() const { return 0; }
  // The ramp draws on beyond both ends.
  static constexpr CGGradientDrawingOptions options() {
    return kCGGradientDrawsBeforeStartLocation | kCGGradientDrawsAfterEndLocation;
  }
  // The dictionary that builds this gradient again (colours as dictionaries of 0-to-1 components).
  virtual Value parameters() const;
  virtual std::shared_ptr<BVGradient> copy() const = 0;

  // Strings are hex colours (an invalid one is logged and dropped), dictionaries hold colorRed,
  // colorGreen, colorBlue and colorAlpha from 0 to 1; other elements are passed over.
  void setColorStrings(const Value& colors) { setColorsFromValues(colors); }
  void setColorDictionaries(const Value& colors) { setColorsFromValues(colors); }
  const std::vector<CGColorRef>& colors() const { return colors_; }
  void setColors(std::vector<CGColorRef> colors) { colors_ = std::move(colors); }
  const std::optional<std::vector<double>>& locations() const { return locations_; }
  void setLocations(std::optional<std::vector<double>> locations) { locations_ = std::move(locations); }
  double rotation() const { return rotation_; }
  virtual void setRotation(double rotation) { rotation_ = rotation; }
  BVImageScalingMode radiusScalingMode() const { return radiusScalingMode_; }
  void setRadiusScalingMode(BVImageScalingMode mode) { radiusScalingMode_ = mode; }
  // Built on first use and kept; later changes of colours or locations do not rebuild it.
  CGGradientRef gradient() const;
  void setGradient(CGGradientRef gradient) { gradient_ = std::move(gradient); }

  // Draws over the clip box, turned by `rotation` degrees about its centre.
  void drawInContext(const CGContextRef& context) const;
  // The ramp as an engine image for a target of `size`, from the first two colours (a third is
  // logged); rotation and locations play no part. Null for the base class.
  virtual CIImageRef CIImageWithSize(CGSize size) const { return nullptr; }

  std::string className() const override { return "BVGradient"; }
  // The parameters dictionary under "parameters".
  void encodeWithCoder(BVKeyedArchiver& coder) const override;
  static std::shared_ptr<BVGradient> initWithCoder(BVKeyedUnarchiver& coder);
  static void registerCodingClasses();

 protected:
  void readCommonParameters(const Value& parameters);
  void copyCommonTo(BVGradient& other) const;
  virtual void draw(const CGContextRef& context, CGSize size) const {}
  CGPoint transformedPoint(CGPoint p, CGSize size) const { return {p.x * size.width, p.y * size.height}; }
  double transformedRadius(double radius, CGSize size) const;
  // Sets inputColor0 and inputColor1 of the operation; a third colour is logged as `className`.
  void setEngineColors(CIFilter& operation, std::string_view className) const;

 private:
  void setColorsFromValues(const Value& colors);

  std::vector<CGColorRef> colors_;
  BVImageScalingMode radiusScalingMode_ = BVImageScalingModeStretch;
  mutable CGGradientRef gradient_;
  std::optional<std::vector<double>> locations_;
  double rotation_ = 0;
};

// From a start point to an end point; centre and radius are derived from them, and setting centre,
// radius or rotation places both points again.
class BVLinearGradient final : public BVGradient {
 public:
  int type() const override { return 1; }
  Value parameters() const override;
  std::shared_ptr<BVGradient> copy() const override;
  CIImageRef CIImageWithSize(CGSize size) const override;
  std::string className() const override { return "BVLinearGradient"; }
  std::vector<std::string> superclassNames() const override { return {"BVGradient"}; }

  BVGradientDirection direction() const { return direction_; }
  // Horizontal runs from (0, 0) to (1, 0), vertical from (0, 0) to (0, 1).
  void setDirection(BVGradientDirection direction);
  CGPoint startPoint() const { return startPoint_; }
  void setStartPoint(CGPoint p);
  CGPoint endPoint() const { return endPoint_; }
  void setEndPoint(CGPoint p);
  CGPoint center();
  void setCenter(CGPoint center);
  double radius();
  void setRadius(double radius);
  void setRotation(double rotation) override;

  void readParameters(const Value& parameters);

 protected:
  void draw(const CGContextRef& context, CGSize size) const override;

 private:
  void updateStartEndPoints();

  CGPoint center_{0, 0};
  double radius_ = 0;
  bool centerNeedsUpdate_ = false, radiusNeedsUpdate_ = false;
  BVGradientDirection direction_ = BVGradientDirectionHorizontal;
  CGPoint startPoint_{0, 0}, endPoint_{1, 0};
};

// Between two circles; only the start circle's centre reaches the engine image.
class BVRadialGradient final : public BVGradient {
 public:
  int type() const override { return 2; }
  Value parameters() const override;
  std::shared_ptr<BVGradient> copy() const override;
  CIImageRef CIImageWithSize(CGSize size) const override;
  std::string className() const override { return "BVRadialGradient"; }
  std::vector<std::string> superclassNames() const override { return {"BVGradient"}; }

  double startRadius() const { return startRadius_; }
  void setStartRadius(double r) { startRadius_ = r; }
  double endRadius() const { return endRadius_; }
  void setEndRadius(double r) { endRadius_ = r; }
  CGPoint startCenter() const { return startCenter_; }
  void setStartCenter(CGPoint p) { startCenter_ = p; }
  CGPoint endCenter() const { return endCenter_; }
  void setEndCenter(CGPoint p) { endCenter_ = p; }
  // The midpoint of the two centres; setting it moves both there.
  CGPoint center() const;
  void setCenter(CGPoint center) { startCenter_ = endCenter_ = center; }
  // The end radius; setting it also sets the start radius to 0.
  double radius() const { return endRadius_; }
  void setRadius(double radius);

  void readParameters(const Value& parameters);

 protected:
  void draw(const CGContextRef& context, CGSize size) const override;

 private:
  double startRadius_ = 0, endRadius_ = 1;
  CGPoint startCenter_{0.5, 0.5}, endCenter_{0.5, 0.5};
};

}  // namespace brenvia
