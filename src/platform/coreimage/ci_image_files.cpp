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
  return fromDecoded(imageio::decodeFile(path, {maxPixelSize}));
}

CIImageRef CIImage::imageWithData(const std::vector<uint8_t>& data, size_t maxPixelSize) {
  return fromDecoded(imageio::decodeData(data.data(), data.size(), {maxPixelSize}));
}

}  // namespace brenvia
