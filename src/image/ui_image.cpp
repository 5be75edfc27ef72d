#include "image/ui_image.h"

#include "image/graphics_utilities.h"
#include "image/image.h"

namespace brenvia {
namespace {

bool isQuarterTurn(BVImageOrientation o) {
  return o == BVImageOrientationLeft || o == BVImageOrientationRight || o == BVImageOrientationLeftMirrored ||
         o == BVImageOrientationRightMirrored;
}

}  // namespace

std::shared_ptr<UIImage> UIImage::imageWithCGImage(CGImageRef image, double scale, BVImageOrientation orientation) {
  if (!image) return nullptr;
  auto result = std::make_shared<UIImage>();
  result->_cgImage = std::move(image);
  result->_scale = scale;
  result->_imageOrientation = orientation;
  return result;
}

CGSize UIImage::size() const {
  const double width = double(_cgImage->width()) / _scale, height = double(_cgImage->height()) / _scale;
  return isQuarterTurn(_imageOrientation) ? CGSizeMake(height, width) : CGSizeMake(width, height);
}

std::shared_ptr<brenvia::BVImage> UIImage::BVImage() const {
  auto image = brenvia::BVImage::initWithCGImage(_cgImage);
  image->setScale(_scale);
  image->setImageOrientation(_imageOrientation);
  return image;
}

brenvia::vImage_Buffer UIImage::vImage_Buffer() const { return vImage_BufferCreateWithCGImage(_cgImage); }

std::shared_ptr<UIImage> UIImage::scaledImageWithSize(CGSize size) const {
  return imageWithCGImage(CGImageCreateWithSize(_cgImage, size));
}

std::shared_ptr<UIImage> UIImage::rotatedImageWithAngle(double degrees) const {
  return imageWithCGImage(CGImageCreateWithRotation(_cgImage, degrees));
}

std::shared_ptr<UIColor> UIColor::colorWithCGColor(CGColorRef color) {
  if (!color) return nullptr;
  auto result = std::make_shared<UIColor>();
  result->_cgColor = std::move(color);
  return result;
}

std::shared_ptr<UIColor> UIColor::initWithHex(std::string_view hex) { return colorWithCGColor(CGColorCreateWithHex(hex)); }

const UIDevice& UIDevice::currentDevice() {
  static const UIDevice device;
  return device;
}

}  // namespace brenvia
