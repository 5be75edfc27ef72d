#include "masks/gradient.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"
#include "platform/foundation/once.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>

namespace brenvia {
namespace {

constexpr double kDegreesToRadians = 0.01745329238474369;

std::optional<double> numberFor(const Value& parameters, std::string_view key) {
  const Value* member = BVMember(parameters, key);
  return member ? BVNumber(*member) : std::nullopt;
}

std::optional<std::string> stringFor(const Value& parameters, std::string_view key) {
  const Value* member = BVMember(parameters, key);
  return member ? BVString(*member) : std::nullopt;
}

// A colour dictionary: four components from 0 to 1, a missing one being 0, in device RGB.
CGColorRef colorFromDictionary(const Value& dictionary) {
  const double components[4] = {
      numberFor(dictionary, "colorRed").value_or(0), numberFor(dictionary, "colorGreen").value_or(0),
      numberFor(dictionary, "colorBlue").value_or(0), numberFor(dictionary, kBVFilterColorAlphaKey).value_or(0)};
  return CGColorCreate(CGColorSpaceCreateDeviceRGB(), components);
}

Value dictionaryFromColor(const CGColorRef& color) {
  const double* c = CGColorGetComponents(color);
  const size_t n = CGColorGetNumberOfComponents(color);
  auto at = [&](size_t i) { return i < n ? c[i] : 0.0; };
  return {{"colorRed", at(0)}, {"colorGreen", at(1)}, {"colorBlue", at(2)}, {kBVFilterColorAlphaKey, at(3)}};
}

}  // namespace

std::shared_ptr<BVGradient> BVGradient::gradientWithParameters(const Value& parameters) {
  if (stringFor(parameters, kBVFilterGradientTypeKey) == "radial") {
    auto radial = std::make_shared<BVRadialGradient>();
    radial->readParameters(parameters);
    return radial;
  }
  auto linear = std::make_shared<BVLinearGradient>();
  linear->readParameters(parameters);
  return linear;
}

void BVGradient::readCommonParameters(const Value& p) {
  if (const Value* colors = BVMember(p, kBVFilterGradientColorsKey)) setColorsFromValues(*colors);
  if (const Value* locations = BVMember(p, kBVFilterGradientLocationsKey); locations && locations->is_array()) {
    std::vector<double> read;
    for (const Value& location : *locations) read.push_back(BVNumber(location).value_or(0));
    locations_ = std::move(read);
  }
  // Stored as it is: the linear gradient's setter would place its points again.
  rotation_ = double(float(numberFor(p, kBVFilterGradientRotationKey).value_or(0)));
  if (auto mode = stringFor(p, kBVFilterGradientRadiusScalingModeKey)) {
    radiusScalingMode_ = BVImageScalingModeFromString(*mode);
  }
}

void BVGradient::setColorsFromValues(const Value& colors) {
  colors_.clear();
  if (!colors.is_array()) return;
  for (const Value& color : colors) {
    if (color.is_string()) {
      if (CGColorRef made = CGColorCreateWithHex(color.get<std::string>())) {
        colors_.push_back(made);
      } else {
        BVLog("[BVGradient] Invalid color: " + color.get<std::string>());
      }
    } else if (color.is_object()) {
      colors_.push_back(colorFromDictionary(color));
    }
  }
}

Value BVGradient::parameters() const {
  Value p = Value::object();
  if (type() == 1) p[std::string(kBVFilterGradientTypeKey)] = "linear";
  if (type() == 2) p[std::string(kBVFilterGradientTypeKey)] = "radial";
  Value colors = Value::array();
  for (const CGColorRef& color : colors_) colors.push_back(dictionaryFromColor(color));
  p[std::string(kBVFilterGradientColorsKey)] = std::move(colors);
  if (locations_) p[std::string(kBVFilterGradientLocationsKey)] = *locations_;
  p[std::string(kBVFilterGradientRotationKey)] = rotation_;
  p[std::string(kBVFilterGradientRadiusScalingModeKey)] = BVGetStringFromImageScalingMode(radiusScalingMode_);
  return p;
}

void BVGradient::copyCommonTo(BVGradient& other) const {
  other.colors_ = colors_;
  other.locations_ = locations_;
  other.rotation_ = rotation_;
  other.radiusScalingMode_ = radiusScalingMode_;
}

CGGradientRef BVGradient::gradient() const {
  if (gradient_) return gradient_;
  std::vector<double> locations;
  const bool spaced = !locations_ || locations_->size() != colors_.size();
  if (!spaced) {
    for (double location : *locations_) locations.push_back(double(float(location)));
  }
  gradient_ = CGGradientCreateWithColors(CGColorSpaceCreateDeviceRGB(), colors_, spaced ? nullptr : locations.data());
  return gradient_;
}

double BVGradient::transformedRadius(double radius, CGSize size) const {
  return radius * (radiusScalingMode_ == BVImageScalingModeFill ? std::max(size.width, size.height)
                                                                : std::min(size.width, size.height));
}

void BVGradient::drawInContext(const CGContextRef& context) const {
  const CGRect box = CGContextGetClipBoundingBox(context);
  const bool turned = rotation_ != 0;
  if (turned) {
    CGContextSaveGState(context);
    const double a = std::round(float(box.size.width * 0.5)), b = std::round(float(box.size.height * 0.5));
    CGContextTranslateCTM(context, a, b);
    CGContextRotateCTM(context, rotation_ * kDegreesToRadians);
    CGContextTranslateCTM(context, -a, -b);
  }
  draw(context, box.size);
  if (turned) CGContextRestoreGState(context);
}

void BVGradient::setEngineColors(CIFilter& operation, std::string_view className) const {
  for (size_t i = 0; i < colors_.size(); ++i) {
    if (i == 2) {
      BVLog("[" + std::string(className) +
            "] Specified more than 2 colors in CI path. This is not supported and additional colors are being "
            "ignored.");
      break;
    }
    operation.setValue(CIColor::colorWithCGColor(colors_[i]), "inputColor" + std::to_string(i));
  }
}

void BVGradient::encodeWithCoder(BVKeyedArchiver& coder) const { coder.encodeObject(parameters(), "parameters"); }

std::shared_ptr<BVGradient> BVGradient::initWithCoder(BVKeyedUnarchiver& coder) {
  return gradientWithParameters(coder.decodeObject("parameters"));
}

void BVGradient::registerCodingClasses() {
  static BVOnce once;
  once([] {
    for (const char* name : {"BVGradient", "BVLinearGradient", "BVRadialGradient"}) {
      BVKeyedUnarchiver::registerClass(
          name, [](BVKeyedUnarchiver& coder) -> std::shared_ptr<BVCoding> { return initWithCoder(coder); });
    }
  });
}

// --- Linear ---

void BVLinearGradient::readParameters(const Value& p) {
  readCommonParameters(p);
  setDirection(stringFor(p, kBVFilterGradientDirectionKey) == "vertical" ? BVGradientDirectionVertical
                                                                         : BVGradientDirectionHorizontal);
  CGPoint start = startPoint_, end = endPoint_;
  if (auto x = numberFor(p, kBVFilterGradientStartPointXKey)) start.x = *x;
  if (auto y = numberFor(p, kBVFilterGradientStartPointYKey)) start.y = *y;
  if (auto x = numberFor(p, kBVFilterGradientEndPointXKey)) end.x = *x;
  if (auto y = numberFor(p, kBVFilterGradientEndPointYKey)) end.y = *y;
  setStartPoint(start);
  setEndPoint(end);
}

Value BVLinearGradient::parameters() const {
  Value p = BVGradient::parameters();
  p[std::string(kBVFilterGradientStartPointXKey)] = startPoint_.x;
  p[std::string(kBVFilterGradientStartPointYKey)] = startPoint_.y;
  p[std::string(kBVFilterGradientEndPointXKey)] = endPoint_.x;
  p[std::string(kBVFilterGradientEndPointYKey)] = endPoint_.y;
  return p;
}

std::shared_ptr<BVGradient> BVLinearGradient::copy() const {
  auto made = std::make_shared<BVLinearGradient>();
  copyCommonTo(*made);
  made->direction_ = direction_;
  made->setStartPoint(startPoint_);
  made->setEndPoint(endPoint_);
  return made;
}

void BVLinearGradient::setDirection(BVGradientDirection direction) {
  direction_ = direction;
  setStartPoint({0, 0});
  setEndPoint(direction == BVGradientDirectionHorizontal ? CGPoint{1, 0} : CGPoint{0, 1});
}

void BVLinearGradient::setStartPoint(CGPoint p) {
  startPoint_ = p;
  centerNeedsUpdate_ = radiusNeedsUpdate_ = true;
}

void BVLinearGradient::setEndPoint(CGPoint p) {
  endPoint_ = p;
  centerNeedsUpdate_ = radiusNeedsUpdate_ = true;
}

CGPoint BVLinearGradient::center() {
  if (centerNeedsUpdate_) {
    center_ = {(startPoint_.x + endPoint_.x) * 0.5, (startPoint_.y + endPoint_.y) * 0.5};
    centerNeedsUpdate_ = false;
  }
  return center_;
}

void BVLinearGradient::setCenter(CGPoint center) {
  if (center.x == center_.x && center.y == center_.y) return;
  center_ = center;
  updateStartEndPoints();
}

double BVLinearGradient::radius() {
  if (radiusNeedsUpdate_) {
    radius_ = std::hypot(endPoint_.x - startPoint_.x, endPoint_.y - startPoint_.y) * 0.5;
    radiusNeedsUpdate_ = false;
  }
  return radius_;
}

void BVLinearGradient::setRadius(double radius) {
  if (radius == radius_) return;
  radius_ = radius;
  updateStartEndPoints();
}

void BVLinearGradient::setRotation(double rotation) {
  if (rotation == BVGradient::rotation()) return;
  BVGradient::setRotation(rotation);
  updateStartEndPoints();
}

// Places the points on a line through the centre at the rotation (radians), r away along the
// axis the rotation is nearest to.
void BVLinearGradient::updateStartEndPoints() {
  constexpr double pi = std::numbers::pi;
  const double a = BVGradient::rotation(), r = radius_;
  const CGPoint c = center_;
  if (a < -3 * pi / 4 || a >= 3 * pi / 4) {
    const double t = r * std::tan(a + pi);
    startPoint_ = {c.x + r, c.y - t}, endPoint_ = {c.x - r, c.y + t};
  } else if (a < -pi / 4) {
    const double t = r * std::tan(a + pi / 2);
    startPoint_ = {c.x - t, c.y - r}, endPoint_ = {c.x + t, c.y + r};
  } else if (a < pi / 4) {
    const double t = r * std::tan(a);
    startPoint_ = {c.x - r, c.y + t}, endPoint_ = {c.x + r, c.y - t};
  } else {
    const double t = r * std::tan(a - pi / 2);
    startPoint_ = {c.x + t, c.y + r}, endPoint_ = {c.x - t, c.y - r};
  }
}

void BVLinearGradient::draw(const CGContextRef& context, CGSize size) const {
  CGContextDrawLinearGradient(context, gradient(), transformedPoint(startPoint_, size),
                              transformedPoint(endPoint_, size), options());
}

CIImageRef BVLinearGradient::CIImageWithSize(CGSize size) const {
  auto operation = CIFilter::filterWithName("CILinearGradient");
  const CGPoint p0 = transformedPoint(startPoint_, size), p1 = transformedPoint(endPoint_, size);
  operation->setValue(CIVector::vectorWithXY(p0.x, p0.y), "inputPoint0");
  operation->setValue(CIVector::vectorWithXY(p1.x, p1.y), "inputPoint1");
  setEngineColors(*operation, className());
  return operation->outputImage();
}

// --- Radial ---

void BVRadialGradient::readParameters(const Value& p) {
  readCommonParameters(p);
  startCenter_ = {numberFor(p, kBVFilterGradientStartCenterXKey).value_or(0.5),
                  numberFor(p, kBVFilterGradientStartCenterYKey).value_or(0.5)};
  endCenter_ = {numberFor(p, kBVFilterGradientEndCenterXKey).value_or(0.5),
                numberFor(p, kBVFilterGradientEndCenterYKey).value_or(0.5)};
  startRadius_ = numberFor(p, kBVFilterGradientStartRadiusKey).value_or(0.0);
  endRadius_ = numberFor(p, kBVFilterGradientEndRadiusKey).value_or(1.0);
}

Value BVRadialGradient::parameters() const {
  Value p = BVGradient::parameters();
  p[std::string(kBVFilterGradientStartCenterXKey)] = startCenter_.x;
  p[std::string(kBVFilterGradientStartCenterYKey)] = startCenter_.y;
  p[std::string(kBVFilterGradientStartRadiusKey)] = startRadius_;
  p[std::string(kBVFilterGradientEndCenterXKey)] = endCenter_.x;
  p[std::string(kBVFilterGradientEndCenterYKey)] = endCenter_.y;
  p[std::string(kBVFilterGradientEndRadiusKey)] = endRadius_;
  return p;
}

std::shared_ptr<BVGradient> BVRadialGradient::copy() const {
  auto made = std::make_shared<BVRadialGradient>();
  copyCommonTo(*made);
  made->startRadius_ = startRadius_;
  made->endRadius_ = endRadius_;
  made->startCenter_ = startCenter_;
  made->endCenter_ = endCenter_;
  return made;
}

CGPoint BVRadialGradient::center() const {
  return {(startCenter_.x + endCenter_.x) * 0.5, (startCenter_.y + endCenter_.y) * 0.5};
}

void BVRadialGradient::setRadius(double radius) {
  startRadius_ = 0;
  endRadius_ = radius;
}

void BVRadialGradient::draw(const CGContextRef& context, CGSize size) const {
  CGContextDrawRadialGradient(context, gradient(), transformedPoint(startCenter_, size),
                              transformedRadius(startRadius_, size), transformedPoint(endCenter_, size),
                              transformedRadius(endRadius_, size), options());
}

CIImageRef BVRadialGradient::CIImageWithSize(CGSize size) const {
  auto operation = CIFilter::filterWithName("CIRadialGradient");
  const CGPoint c = transformedPoint(startCenter_, size);
  operation->setValue(CIVector::vectorWithXY(c.x, c.y), "inputCenter");
  operation->setValue(transformedRadius(startRadius_, size), "inputRadius0");
  operation->setValue(transformedRadius(endRadius_, size), "inputRadius1");
  setEngineColors(*operation, className());
  return operation->outputImage();
}

}  // namespace brenvia
