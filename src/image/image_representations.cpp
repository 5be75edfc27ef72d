// The ways out of a BVImage: the UI picture form, JPEG and PNG data and files, and its average
// colour.

#include "image/graphics_utilities.h"
#include "image/image.h"
#include "image/ui_image.h"

#include "platform/coreimage/ci_context.h"
#include "platform/imageio/image_io.h"

namespace brenvia {
namespace {

std::optional<std::string> writeTemporary(std::string_view extension, const std::vector<uint8_t>& bytes) {
  std::string path = BVTemporaryFilePath("BVTemporaryImage", extension);
  if (!imageio::writeFileAtomically(path, bytes)) return std::nullopt;
  return path;
}

}  // namespace

std::optional<std::vector<uint8_t>> BVImage::jpegRepresentation(double quality) const {
  CIImageRef picture = CIImage();
  if (!picture) return std::nullopt;
  CGColorSpaceRef space = colorSpace();
  if (!space) space = CGColorSpaceCreateDeviceRGB();
  return CIContext::context()->JPEGRepresentationOfImage(picture, space, {quality});
}

std::optional<std::string> BVImage::writeToTemporaryJPEGFile(double quality) const {
  std::optional<std::vector<uint8_t>> bytes = jpegRepresentation(quality);
  if (!bytes) return std::nullopt;
  return writeTemporary("jpg", *bytes);
}

std::shared_ptr<UIImage> BVImage::UIImage() const {
  return brenvia::UIImage::imageWithCGImage(CGImage(), _scale, _imageOrientation);
}

std::optional<std::string> BVImage::writeToTemporaryPNGFile() const {
  CGImageRef bitmap = CGImage();
  if (!bitmap) return std::nullopt;
  imageio::EncodeOptions options;
  options.orientation = EXIFOrientation();
  std::vector<uint8_t> bytes;
  if (!imageio::encodePNG(*bitmap, options, bytes)) return std::nullopt;
  return writeTemporary("png", bytes);
}

// The scaler of a draw into one pixel does the averaging.
CGColorRef BVImage::averageColor() const {
  CGImageRef bitmap = CGImage();
  if (!bitmap) return nullptr;
  uint8_t pixel[4] = {};
  CGContextRef context =
      CGBitmapContextCreate(pixel, 1, 1, 8, 4, CGColorSpaceCreateDeviceRGB(), kBVRGBA8BitmapInfo);
  if (!context) return nullptr;
  CGContextDrawImage(context, CGRectMake(0, 0, 1, 1), bitmap);
  const double components[4] = {pixel[0] / 255.0, pixel[1] / 255.0, pixel[2] / 255.0, 1.0};
  return CGColorCreate(CGColorSpaceCreateDeviceRGB(), components);
}

}  // namespace brenvia
