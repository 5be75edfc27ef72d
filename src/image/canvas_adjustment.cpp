#include "image/canvas_adjustment.h"

#include "image/image.h"
#include "operators/planar_adjustment_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/keyed_archive.h"
#include "platform/foundation/property_list.h"

#include <nlohmann/json.hpp>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace brenvia {
namespace {

// Degrees to radians with pi / 180 in single precision, as the geometry has always turned.
constexpr double kDegreesToRadians = 0.01745329238474369;

std::string formatted(const char* format, auto... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::optional<CGRect> rectFromString(const std::string& text) {
  CGRect r;
  int consumed = 0;
  const int read = std::sscanf(text.c_str(), "{{%lf, %lf}, {%lf, %lf}}%n", &r.origin.x, &r.origin.y, &r.size.width,
                               &r.size.height, &consumed);
  if (read != 4 || size_t(consumed) != text.size()) return std::nullopt;
  return r;
}

std::optional<double> member(const Value& value, const char* key) {
  const Value* found = BVMember(value, key);
  return found ? BVDouble(*found) : std::nullopt;
}

using Fields = std::array<double, 5>;

Fields fieldsOf(const BVImageCrop& c) {
  return {c.rect.origin.x, c.rect.origin.y, c.rect.size.width, c.rect.size.height, c.rotation};
}
Fields fieldsOf(const BVPlanarAdjustment& p) {
  return {p.rotation, p.horizontalSkew, p.verticalSkew, p.horizontalStretch, p.verticalStretch};
}
BVImageCrop cropOf(const Fields& f) { return {{f[0], f[1], f[2], f[3]}, f[4]}; }
BVPlanarAdjustment planarOf(const Fields& f) { return {f[0], f[1], f[2], f[3], f[4]}; }

std::vector<uint8_t> littleEndian(const Fields& fields) {
  std::vector<uint8_t> bytes(40);
  for (size_t i = 0; i < 5; ++i) {
    const uint64_t bits = std::bit_cast<uint64_t>(fields[i]);
    for (size_t b = 0; b < 8; ++b) bytes[i * 8 + b] = uint8_t(bits >> (8 * b));
  }
  return bytes;
}

// Five doubles from 40 bytes or five floats from 20, little-endian; nothing for other lengths.
std::optional<Fields> fieldsFromBytes(const std::vector<uint8_t>& bytes, bool floatsAllowed) {
  Fields fields{};
  if (bytes.size() == 40) {
    for (size_t i = 0; i < 5; ++i) {
      uint64_t bits = 0;
      for (size_t b = 0; b < 8; ++b) bits |= uint64_t(bytes[i * 8 + b]) << (8 * b);
      fields[i] = std::bit_cast<double>(bits);
    }
    return fields;
  }
  if (bytes.size() == 20 && floatsAllowed) {
    for (size_t i = 0; i < 5; ++i) {
      uint32_t bits = 0;
      for (size_t b = 0; b < 4; ++b) bits |= uint32_t(bytes[i * 4 + b]) << (8 * b);
      fields[i] = double(std::bit_cast<float>(bits));
    }
    return fields;
  }
  return std::nullopt;
}

void encodeFields(BVKeyedArchiver& coder, const Fields& fields, std::string_view key) {
  const std::vector<uint8_t> bytes = littleEndian(fields);
  coder.encodeObject(Value{{"$data", BVBase64Encode(bytes.data(), bytes.size())}}, key);
}

Fields decodeFields(BVKeyedUnarchiver& coder, std::string_view key) {
  const Value data = coder.decodeObject(key);
  const Value* text = BVMember(data, "$data");
  std::optional<std::vector<uint8_t>> bytes =
      text && text->is_string() ? BVBase64Decode(text->get<std::string>()) : std::nullopt;
  return bytes ? fieldsFromBytes(*bytes, true).value_or(Fields{}) : Fields{};
}

uint64_t truncated(double x) { return x > 0 && x < 1.8446744073709552e19 ? uint64_t(x) : 0; }

}  // namespace

BVImageCrop BVImageCropMake(double x, double y, double width, double height, double rotation) {
  return {{x, y, width, height}, rotation};
}

bool BVImageCropEqualToCrop(const BVImageCrop& a, const BVImageCrop& b) {
  return CGRectEqualToRect(a.rect, b.rect) && a.rotation == b.rotation;
}

BVImageCrop BVImageCropScale(const BVImageCrop& crop, double scale) {
  return {CGRectApplyAffineTransform(crop.rect, CGAffineTransformMakeScale(scale, scale)), crop.rotation};
}

std::string NSStringFromBVImageCrop(const BVImageCrop& c) {
  return formatted("{%i, %i} {%i, %i}, %f}", int(c.rect.origin.x), int(c.rect.origin.y), int(c.rect.size.width),
                   int(c.rect.size.height), c.rotation);
}

BVPlanarAdjustment BVPlanarAdjustmentMake(double rotation, double horizontalSkew, double verticalSkew,
                                          double verticalStretch, double horizontalStretch) {
  return {rotation, horizontalSkew, verticalSkew, horizontalStretch, verticalStretch};
}

BVPlanarAdjustment BVPlanarAdjustmentMakeWithRotation(double rotation) { return {rotation, 0, 0, 0, 0}; }

BVPlanarAdjustment BVPlanarAdjustmentMakeWithRotationAndSkew(double rotation, double horizontalSkew,
                                                             double verticalSkew) {
  return {rotation, horizontalSkew, verticalSkew, 0, 0};
}

bool BVPlanarAdjustmentEqual(const BVPlanarAdjustment& a, const BVPlanarAdjustment& b) {
  return fieldsOf(a) == fieldsOf(b);
}

std::string NSStringFromBVPlanarAdjustment(const BVPlanarAdjustment& p) {
  return formatted("{%f, /%f, %f\\ |%f, %f|}", p.rotation, p.horizontalSkew, p.verticalSkew, p.horizontalStretch,
                   p.verticalStretch);
}

BVImageOrientationAdjustment BVImageOrientationAdjustmentAdd90CW(BVImageOrientationAdjustment adjustment) {
  return adjustment <= 3 ? BVImageOrientationAdjustment((adjustment + 1) % 4) : 1;
}

std::string NSStringFromBVImageOrientationAdjustment(BVImageOrientationAdjustment adjustment) {
  switch (adjustment) {
    case 1: return "90CW";
    case 2: return "180";
    case 3: return "90CCW (270)";
    default: return "None";
  }
}

bool BVImageOrientationIsPortrait(BVImageOrientation o) { return o == 0 || o == 1 || o == 4 || o == 5; }
bool BVImageOrientationIsLandscape(BVImageOrientation o) { return o == 2 || o == 3 || o == 6 || o == 7; }
bool BVImageOrientationIsMirrored(BVImageOrientation o) { return o >= 4 && o <= 7; }

Value BVImageCropToValue(const BVImageCrop& crop) {
  return {{"rect", NSStringFromCGRect(crop.rect)}, {"rotation", crop.rotation}};
}

std::optional<BVImageCrop> BVImageCropFromValue(const Value& value) {
  const Value* rect = BVMember(value, "rect");
  std::optional<CGRect> r = rect && rect->is_string() ? rectFromString(rect->get<std::string>()) : std::nullopt;
  std::optional<double> rotation = member(value, "rotation");
  if (!r || !rotation) return std::nullopt;
  return BVImageCrop{*r, *rotation};
}

Value BVPlanarAdjustmentToValue(const BVPlanarAdjustment& p) {
  return {{"rotation", p.rotation},
          {"horizontalSkew", p.horizontalSkew},
          {"verticalSkew", p.verticalSkew},
          {"horizontalStretch", p.horizontalStretch},
          {"verticalStretch", p.verticalStretch}};
}

std::optional<BVPlanarAdjustment> BVPlanarAdjustmentFromValue(const Value& value) {
  Fields fields{};
  const std::array<const char*, 5> keys{"rotation", "horizontalSkew", "verticalSkew", "horizontalStretch",
                                        "verticalStretch"};
  for (size_t i = 0; i < keys.size(); ++i) {
    std::optional<double> field = member(value, keys[i]);
    if (!field) return std::nullopt;
    fields[i] = *field;
  }
  return planarOf(fields);
}

std::vector<uint8_t> BVImageCropLegacyData(const BVImageCrop& crop) { return littleEndian(fieldsOf(crop)); }

std::vector<uint8_t> BVPlanarAdjustmentLegacyData(const BVPlanarAdjustment& planar) {
  return littleEndian(fieldsOf(planar));
}

std::optional<BVImageCrop> BVImageCropFromLegacyData(const std::vector<uint8_t>& data) {
  std::optional<Fields> fields = fieldsFromBytes(data, false);
  return fields ? std::optional(cropOf(*fields)) : std::nullopt;
}

std::optional<BVPlanarAdjustment> BVPlanarAdjustmentFromLegacyData(const std::vector<uint8_t>& data) {
  std::optional<Fields> fields = fieldsFromBytes(data, false);
  return fields ? std::optional(planarOf(*fields)) : std::nullopt;
}

void BVEncodeImageCrop(BVKeyedArchiver& coder, const BVImageCrop& crop, std::string_view key) {
  encodeFields(coder, fieldsOf(crop), key);
}

void BVEncodePlanarAdjustment(BVKeyedArchiver& coder, const BVPlanarAdjustment& planar, std::string_view key) {
  encodeFields(coder, fieldsOf(planar), key);
}

BVImageCrop BVDecodeImageCrop(BVKeyedUnarchiver& coder, std::string_view key) {
  return cropOf(decodeFields(coder, key));
}

BVPlanarAdjustment BVDecodePlanarAdjustment(BVKeyedUnarchiver& coder, std::string_view key) {
  return planarOf(decodeFields(coder, key));
}

std::shared_ptr<BVCanvasAdjustment> BVCanvasAdjustment::identityAdjustment() {
  return std::make_shared<BVCanvasAdjustment>();
}

std::shared_ptr<BVCanvasAdjustment> BVCanvasAdjustment::adjustmentWithCrop(const BVImageCrop& crop) {
  return adjustmentWithCrop(crop, 0);
}

std::shared_ptr<BVCanvasAdjustment> BVCanvasAdjustment::adjustmentWithOrientation(
    BVImageOrientationAdjustment orientation) {
  return adjustmentWithCrop(BVImageCropSquareMedian, orientation);
}

std::shared_ptr<BVCanvasAdjustment> BVCanvasAdjustment::adjustmentWithCrop(const BVImageCrop& crop,
                                                                           BVImageOrientationAdjustment orientation,
                                                                           const BVPlanarAdjustment& planar) {
  auto made = std::make_shared<BVCanvasAdjustment>();
  made->crop_ = crop;
  made->orientation_ = orientation;
  made->planar_ = planar;
  return made;
}

bool BVCanvasAdjustment::isIdentity() const { return isEqualToCanvasAdjustment(identityAdjustment().get()); }

bool BVCanvasAdjustment::isEqualToCanvasAdjustment(const BVCanvasAdjustment* other) const {
  const BVCanvasAdjustment zero;
  const BVCanvasAdjustment& o = other ? *other : zero;
  return BVImageCropEqualToCrop(crop_, o.crop_) && orientation_ == o.orientation_ &&
         BVPlanarAdjustmentEqual(planar_, o.planar_);
}

uint64_t BVCanvasAdjustment::hash() const {
  uint64_t sum = orientation_;
  for (double x : fieldsOf(crop_)) sum += truncated(x);
  for (double x : fieldsOf(planar_)) sum += truncated(x);
  return sum;
}

std::string BVCanvasAdjustment::description() const {
  return formatted("<BVCanvasAdjustment: %p; crop: ", static_cast<const void*>(this)) + NSStringFromBVImageCrop(crop_) +
         "; planar: " + NSStringFromBVPlanarAdjustment(planar_) +
         "; orientation: " + NSStringFromBVImageOrientationAdjustment(orientation_) + ">";
}

CGRect BVResolvedCropRect(const BVImageCrop& crop, CGSize size) {
  const double W = size.width, H = size.height, side = std::min(W, H);
  const bool landscape = side != W;
  CGRect r = crop.rect;
  if (BVImageCropEqualToCrop(crop, BVImageCropSquareMin)) {
    r = CGRectMake(0, 0, side, side);
  } else if (BVImageCropEqualToCrop(crop, BVImageCropSquareMedian) ||
             (landscape && BVImageCropEqualToCrop(crop, BVImageCropSquareMax))) {
    r = landscape ? CGRectMake((W - side) * 0.5, 0, side, side) : CGRectMake(0, (H - side) * 0.5, side, side);
  } else if (BVImageCropEqualToCrop(crop, BVImageCropSquareMax)) {
    r = CGRectMake(0, H - side, side, side);
  }
  // Crops count y from the top; the engine's y axis points up.
  return CGRectMake(r.origin.x, H - r.size.height - r.origin.y, r.size.width, r.size.height);
}

CIImageRef BVImageWithCanvasAdjustment(const CIImageRef& image, const BVCanvasAdjustment* adjustment,
                                       double scaleAdjustment, BVImageOrientation sourceOrientation,
                                       const CIFilter* rawFilter) {
  if (!image) return nullptr;
  const BVImageOrientation turned =
      BVImage::_imageOrientationWithAdjustment(sourceOrientation, adjustment ? adjustment->orientation() : 0);
  CIImageRef picture = image->imageByApplyingOrientation(BVImage::EXIFOrientationForImageOrientation(turned));
  if (adjustment) {
    BVImageCrop crop = adjustment->crop();
    if (rawFilter) crop = BVImageCropScale(crop, scaleAdjustment);
    CGSize kept = picture->extent().size;
    if (!BVImageCropEqualToCrop(crop, BVImageCropZero)) {
      const CGRect rect = BVResolvedCropRect(crop, kept);
      picture = picture->imageByCroppingToRect(rect);
      kept = rect.size;
    }
    const BVPlanarAdjustment& p = adjustment->planar();
    if (!BVPlanarAdjustmentEqual(p, BVPlanarAdjustmentZero)) {
      const CGRect before = picture->extent();
      const BVPlanarAdjustmentInputs inputs{float(p.rotation * kDegreesToRadians), float(p.verticalSkew),
                                            float(p.horizontalSkew), float(p.verticalStretch),
                                            float(p.horizontalStretch)};
      // The corrected picture keeps the crop's size (the picture's own without a crop), centred on it
      // on whole pixels so that no partial column or row is added.
      if (CIImageRef corrected = BVPlanarAdjustmentImage(picture, inputs)) {
        const CGRect e = corrected->extent();
        picture = CGRectEqualToRect(e, before)
                      ? corrected
                      : corrected->imageByCroppingToRect(
                            CGRectMake(std::round(e.origin.x + (e.size.width - kept.width) * 0.5),
                                       std::round(e.origin.y + (e.size.height - kept.height) * 0.5), kept.width,
                                       kept.height));
      }
    }
  }
  if (scaleAdjustment != 1.0 && !rawFilter) {
    picture = picture->imageByApplyingTransform(CGAffineTransformMakeScale(scaleAdjustment, scaleAdjustment));
  }
  return picture;
}

}  // namespace brenvia
