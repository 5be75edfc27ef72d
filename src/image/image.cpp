#include "image/image.h"

#include "image/canvas_adjustment.h"
#include "image/depth_images.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_context.h"
#include "platform/foundation/log.h"
#include "platform/graphics/cg_context.h"
#include "platform/imageio/image_io.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

namespace brenvia {

namespace {

constexpr std::string_view kCGImagePropertyOrientation = "Orientation";
// The engine answers a picture's orientation under either name.
constexpr std::string_view kCIInputImageOrientationKey = "inputImageOrientation";

// pi / 180 in single precision, widened.
constexpr double kDegreesToRadians = 0.01745329238474369;

struct OrientationRow {
  int exif;
  double degrees;
};

constexpr std::array<OrientationRow, 8> kOrientationTable{{
    {1, 0},    // up
    {3, 180},  // down
    {8, 90},   // left
    {6, -90},  // right
    {2, 0},    // up mirrored
    {4, 180},  // down mirrored
    {7, -90},  // left mirrored
    {5, 90},   // right mirrored
}};

// Indexed by EXIF orientation; entry 0 is unused.
constexpr std::array<BVImageOrientation, 9> kOrientationForEXIF{
    BVImageOrientationUp,
    BVImageOrientationUp,             // 1
    BVImageOrientationUpMirrored,     // 2
    BVImageOrientationDown,           // 3
    BVImageOrientationDownMirrored,   // 4
    BVImageOrientationRightMirrored,  // 5
    BVImageOrientationRight,          // 6
    BVImageOrientationLeftMirrored,   // 7
    BVImageOrientationLeft,           // 8
};

// Clockwise quarter turns step through this ring.
constexpr std::array<BVImageOrientation, 4> kQuarterTurnRing{BVImageOrientationUp, BVImageOrientationRight,
                                                             BVImageOrientationDown, BVImageOrientationLeft};

int integerProperty(const CIImageRef& image, std::string_view key) {
  if (!image) return 0;
  const Value* member = BVMember(image->properties(), key);
  if (!member) return 0;
  std::optional<double> number = BVDouble(*member);
  // Numbers beyond the int range are no orientation; converting them would be undefined.
  if (!number || !(std::abs(*number) < 1e9)) return 0;
  return static_cast<int>(*number);
}

int orientationProperty(const CIImageRef& image) {
  int orientation = integerProperty(image, kCGImagePropertyOrientation);
  return orientation != 0 ? orientation : integerProperty(image, kCIInputImageOrientationKey);
}

std::string storageAPIOption(const Value& options) {
  const Value* storage = BVMember(options, kBVImageInitializationOptionStorageAPIKey);
  return storage ? BVString(*storage).value_or("") : "";
}

// The disparity map and portrait matte stored beside the picture, as decoded, unless the options
// skip them.
template <typename Load>
std::pair<CIImageRef, CIImageRef> auxiliaryImages(const Value& options, Load load) {
  const Value* ignore = BVMember(options, kBVImageInitializationOptionIgnoreDepthDataKey);
  if (ignore && BVBool(*ignore).value_or(false)) return {};
  return {load(CIImage::Auxiliary::Disparity), load(CIImage::Auxiliary::PortraitMatte)};
}

}  // namespace

std::shared_ptr<BVImage> BVImage::initWithCGImage(CGImageRef image) {
  if (!image) return nullptr;
  auto result = std::make_shared<BVImage>();
  result->_cgImage = std::move(image);
  return result;
}

std::shared_ptr<BVImage> BVImage::initWithCIImage(CIImageRef image) {
  if (!image) return nullptr;
  auto result = std::make_shared<BVImage>();
  result->_ciImage = std::move(image);
  int orientation = orientationProperty(result->_ciImage);
  if (orientation != 0) result->_imageOrientation = imageOrientationForEXIFOrientation(orientation);
  return result;
}

std::shared_ptr<BVImage> BVImage::initWithCIImage(CIImageRef image, CIImageRef disparityImage,
                                                  CIImageRef portraitMatteImage) {
  auto result = initWithCIImage(std::move(image));
  if (!result) return nullptr;
  result->_disparityImageStorage = std::move(disparityImage);
  result->_portraitMatteImageStorage = std::move(portraitMatteImage);
  return result;
}

std::shared_ptr<BVImage> BVImage::initWithContentsOfFile(const std::string& path) {
  return initWithContentsOfFile(path, Value::object());
}

std::shared_ptr<BVImage> BVImage::initWithContentsOfFile(const std::string& path, const Value& options) {
  std::error_code error;
  if (path.empty() || !std::filesystem::exists(path, error)) return nullptr;
  auto result = std::make_shared<BVImage>();
  if (storageAPIOption(options) != kBVImageInitializationOptionStorageAPICoreImage) {
    // A bitmap load reads pixels only: a failed decode leaves an empty picture.
    if (auto decoded = imageio::decodeFile(path)) result->_cgImage = decoded->image;
    return result;
  }
  result->_ciImage = ::brenvia::CIImage::imageWithContentsOfFile(path);
  if (result->_ciImage) {
    auto [disparity, matte] = auxiliaryImages(options, [&](::brenvia::CIImage::Auxiliary which) {
      return ::brenvia::CIImage::auxiliaryImageWithContentsOfFile(path, which);
    });
    result->setDisparityImage(disparity);
    result->setPortraitMatteImage(matte);
  }
  result->_setOrientationWithOptions(options);
  return result;
}

std::shared_ptr<BVImage> BVImage::initWithData(const std::vector<uint8_t>& data) {
  return initWithData(data, Value::object());
}

std::shared_ptr<BVImage> BVImage::initWithData(const std::vector<uint8_t>& data, const Value& options) {
  if (data.empty()) return nullptr;
  if (storageAPIOption(options) != kBVImageInitializationOptionStorageAPICoreImage) {
    auto decoded = imageio::decodeData(data.data(), data.size());
    if (!decoded) return nullptr;
    auto result = initWithCGImage(decoded->image);
    if (!result) return nullptr;
    if (const Value* orientation = BVMember(decoded->properties, kCGImagePropertyOrientation)) {
      result->_imageOrientation = imageOrientationForEXIFOrientation(int(BVDouble(*orientation).value_or(0)));
    }
    return result;
  }
  auto result = std::make_shared<BVImage>();
  result->_ciImage = ::brenvia::CIImage::imageWithData(data);
  if (result->_ciImage) {
    auto [disparity, matte] = auxiliaryImages(options, [&](::brenvia::CIImage::Auxiliary which) {
      return ::brenvia::CIImage::auxiliaryImageWithData(data, which);
    });
    result->setDisparityImage(disparity);
    result->setPortraitMatteImage(matte);
  }
  result->_setOrientationWithOptions(options);
  return result;
}

void BVImage::setDisparityImage(const CIImageRef& disparity, const CIImageRef& guide) {
  _disparityImageStorage = disparity && _ciImage
                               ? BVEdgePreservingUpsampledImage(BVNormalizedDisparityImage(disparity),
                                                                guide ? guide : _ciImage, _ciImage->extent())
                               : nullptr;
}

void BVImage::setPortraitMatteImage(const CIImageRef& matte, const CIImageRef& guide) {
  _portraitMatteImageStorage =
      matte && _ciImage ? BVEdgePreservingUpsampledImage(matte, guide ? guide : _ciImage, _ciImage->extent()) : nullptr;
}

void BVImage::_setOrientationWithOptions(const Value& options) {
  int orientation = integerProperty(_ciImage, kCGImagePropertyOrientation);
  const Value* apply = BVMember(options, kBVImageInitializationOptionApplyOrientationKey);
  if (!(apply && BVBool(*apply).value_or(false))) {
    _imageOrientation = imageOrientationForEXIFOrientation(orientation);
    return;
  }
  for (CIImageRef* image : {&_ciImage, &_disparityImageStorage, &_portraitMatteImageStorage}) {
    if (*image) *image = (*image)->imageByApplyingOrientation(orientation);
  }
}

int BVImage::EXIFOrientationForImageOrientation(BVImageOrientation orientation) {
  return orientation < kOrientationTable.size() ? kOrientationTable[orientation].exif : 1;
}

BVImageOrientation BVImage::imageOrientationForEXIFOrientation(int exifOrientation) {
  if (exifOrientation < 1 || exifOrientation > 8) {
    BVLog("[CIImage+BVCanvasAdjustment] Unknown exif image orientation: " + std::to_string(exifOrientation));
    return BVImageOrientationUp;
  }
  return kOrientationForEXIF[exifOrientation];
}

double BVImage::_rotationDegreesForImageOrientation(BVImageOrientation orientation) {
  return orientation < kOrientationTable.size() ? kOrientationTable[orientation].degrees : 0;
}

BVImageOrientation BVImage::_imageOrientationWithAdjustment(BVImageOrientation orientation, uint8_t quarterTurns) {
  for (size_t place = 0; place < kQuarterTurnRing.size(); ++place) {
    if (kQuarterTurnRing[place] == orientation) {
      return kQuarterTurnRing[(place + quarterTurns) % kQuarterTurnRing.size()];
    }
  }
  BVLog("[BVImage] Altering orientations for mirrored images is not supported.");
  return orientation;
}

CGSize BVImage::size() const {
  if (_cgImage) return CGSize{double(_cgImage->width()), double(_cgImage->height())};
  if (_ciImage) return _ciImage->extent().size;
  return CGSizeZero;
}

CGSize BVImage::sizeWithOrientation() const {
  const CGSize s = size();
  // Orientations turn by quarter turns: the sides are swapped exactly rather than rotated in floating point.
  const double degrees = std::abs(_rotationDegreesForImageOrientation(_imageOrientation));
  return std::fmod(degrees, 180.0) == 90.0 ? CGSize{s.height, s.width} : s;
}

CGSize BVImage::sizeWithAdjustments() const {
  CGSize s = sizeWithOrientation();
  if (!_hasGeometryAdjustments()) return s;
  const CGSize cropped = _canvasAdjustment ? _canvasAdjustment->crop().rect.size : CGSizeZero;
  if (cropped.width != 0 || cropped.height != 0) s = cropped;
  return CGSize{s.width * _scaleAdjustment, s.height * _scaleAdjustment};
}

bool BVImage::_hasGeometryAdjustments() const {
  return _scaleAdjustment != 1.0 || (_canvasAdjustment && !_canvasAdjustment->isIdentity());
}

CGColorSpaceRef BVImage::colorSpace() const {
  if (_cgImage) return CGImageGetColorSpace(_cgImage);
  if (_ciImage) return _ciImage->colorSpace();
  return nullptr;
}

CIImageRef BVImage::CIImage() const {
  if (_ciImage) return _ciImage;
  if (_cgImage) return ::brenvia::CIImage::imageWithCGImage(_cgImage);
  return nullptr;
}

CGImageRef BVImage::CGImage() const {
  if (_cgImage) return _cgImage;
  CIImageRef picture = CIImage();
  if (!picture) return nullptr;
  _cgImage = CIContext::context()->createCGImage(picture, picture->extent());
  return _cgImage;
}

bool BVImage::isSquare() const {
  if (!_checkedAspectRatio) {
    CGSize s = size();
    _square = s.width == s.height;
    _checkedAspectRatio = true;
  }
  return _square;
}

int BVImage::backingStorage() const {
  if (_cgImage) return kBackingStorageCoreGraphics;
  if (_ciImage) return kBackingStorageCoreImage;
  return kBackingStorageNone;
}

CIImageRef BVImage::adjustedCIImage() const {
  CIImageRef picture = CIImage();
  if (!picture || !_hasGeometryAdjustments()) return picture;
  return _imageWithGeometryAdjustments(picture);
}

CIImageRef BVImage::_imageWithGeometryAdjustments(const CIImageRef& picture) const {
  return BVImageWithCanvasAdjustment(picture, _canvasAdjustment.get(), _scaleAdjustment, _imageOrientation);
}

std::shared_ptr<BVImage> BVImage::copy() const {
  std::shared_ptr<BVImage> result;
  // An engine image wins over a bitmap that only caches its render.
  if (_ciImage) {
    result = initWithCIImage(_ciImage);
  } else if (_cgImage) {
    result = initWithCGImage(_cgImage);
  }
  if (!result) return nullptr;
  result->_scale = _scale;
  result->_imageOrientation = _imageOrientation;
  result->_scaleAdjustment = _scaleAdjustment;
  result->_canvasAdjustment = _canvasAdjustment;
  result->_disparityImageStorage = _disparityImageStorage;
  result->_portraitMatteImageStorage = _portraitMatteImageStorage;
  return result;
}

}  // namespace brenvia

namespace brenvia {

void BVImage::drawInContext(const CGContextRef& context) const {
  CGContextDrawImage(context, CGContextGetClipBoundingBox(context), CGImage());
}

void BVImage::setScaleAdjustmentForTargetSize(CGSize target, int mode) {
  const CGSize s = sizeWithOrientation();
  const double across = target.width / s.width, down = target.height / s.height;
  if (mode == BVImageScalingModeFill) {
    _scaleAdjustment = std::max(across, down);
  } else if (mode == BVImageScalingModeFit) {
    _scaleAdjustment = std::min(across, down);
  } else {
    throw std::invalid_argument("must use `fit` or `fill` scaling mode");
  }
}

std::shared_ptr<BVImage> BVImage::imageWithAdjustment(const std::shared_ptr<BVCanvasAdjustment>& adjustment,
                                                      double scale) const {
  auto adjusted = copy();
  if (!adjusted) return nullptr;
  adjusted->_canvasAdjustment = adjustment;
  const CGAffineTransform scaling = CGAffineTransformMakeScale(scale, scale);
  // Depth and matte get the picture's crop and orientation, not its scale adjustment.
  const auto auxiliary = [&](const CIImageRef& storage) -> CIImageRef {
    auto image = BVImage::initWithCIImage(storage);
    if (!image) return nullptr;
    image->_imageOrientation = _imageOrientation;
    image->_canvasAdjustment = adjustment;
    CIImageRef picture = image->adjustedCIImage();
    return picture ? picture->imageByApplyingTransform(scaling) : nullptr;
  };
  CIImageRef main = adjusted->adjustedCIImage();
  if (!main) return nullptr;
  main = main->imageByApplyingTransform(scaling);
  CIContextOptions options;
  options.outputColorSpace = options.workingColorSpace = colorSpace();
  auto context = CIContext::contextWithOptions(options);
  auto result = BVImage::initWithCGImage(context->createCGImage(main, CGRectIntegral(main->extent())));
  if (!result) return nullptr;
  const auto flat = [&](const CIImageRef& image) -> CIImageRef {
    if (!image) return nullptr;
    return CIImage::imageWithCGImage(context->createCGImage(image, CGRectIntegral(image->extent())));
  };
  result->_disparityImageStorage = flat(auxiliary(_disparityImageStorage));
  result->_portraitMatteImageStorage = flat(auxiliary(_portraitMatteImageStorage));
  return result;
}

std::shared_ptr<BVImage> BVImage::renderAdjustedImage() const { return imageWithAdjustment(_canvasAdjustment, _scale); }

void BVImage::normalizeToUpOrientation() {
  if (_imageOrientation == BVImageOrientationUp) return;
  const int exif = EXIFOrientation();
  if (_cgImage) {
    _cgImage = CGImageCreateWithRotation(_cgImage, _rotationDegreesForImageOrientation(_imageOrientation));
    if (_imageOrientation >= BVImageOrientationUpMirrored && _cgImage)
      _cgImage = CGImageCreateWithHorizontalFlip(_cgImage);
  } else if (_ciImage) {
    _ciImage = _ciImage->imageByApplyingOrientation(exif);
  }
  if (_disparityImageStorage) _disparityImageStorage = _disparityImageStorage->imageByApplyingOrientation(exif);
  if (_portraitMatteImageStorage)
    _portraitMatteImageStorage = _portraitMatteImageStorage->imageByApplyingOrientation(exif);
  _imageOrientation = BVImageOrientationUp;
}

std::shared_ptr<BVImage> BVImage::imageWithUpOrientation() const {
  auto upright = copy();
  if (upright) upright->normalizeToUpOrientation();
  return upright;
}

}  // namespace brenvia
