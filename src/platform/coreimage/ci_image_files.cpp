#include "platform/coreimage/ci_image.h"

#include "platform/imageio/image_io.h"

namespace brenvia {
namespace {

CIImageRef fromDecoded(std::optional<imageio::DecodedImage> decoded) {
  if (!decoded) return nullptr;
  return CIImage::imageWithCGImage(std::move(decoded->image), std::move(decoded->properties));
}

}  // namespace

CIImageRef CIImage::imageWithContentsOfFile(const std::string& path, size_t maxPixelSize) {
  // Rows of large pictures arrive while the image is in use: renders start on the first rows.
  imageio::DecodeOptions options;
  options.maxPixelSize = maxPixelSize;
  options.background = true;
  return fromDecoded(imageio::decodeFile(path, options));
}

CIImageRef CIImage::imageWithData(const std::vector<uint8_t>& data, size_t maxPixelSize) {
  imageio::DecodeOptions options;
  options.maxPixelSize = maxPixelSize;
  return fromDecoded(imageio::decodeData(data.data(), data.size(), options));
}

}  // namespace brenvia
