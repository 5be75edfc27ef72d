#include "platform/coreimage/ci_image.h"

#include "platform/imageio/image_io.h"

namespace brenvia {
namespace {

CIImageRef fromDecoded(std::optional<imageio::DecodedImage> decoded) {
  if (!decoded) return nullptr;
  return CIImage::imageWithCGImage(std::move(decoded->image), std::move(decoded->properties));
}

imageio::DecodeOptions auxiliaryOptions(CIImage::Auxiliary which) {
  imageio::DecodeOptions options;
  options.auxiliary = which == CIImage::Auxiliary::Disparity ? imageio::AuxiliaryImage::Disparity
                                                             : imageio::AuxiliaryImage::PortraitMatte;
  return options;
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

CIImageRef CIImage::auxiliaryImageWithContentsOfFile(const std::string& path, Auxiliary which) {
  return fromDecoded(imageio::decodeFile(path, auxiliaryOptions(which)));
}

CIImageRef CIImage::auxiliaryImageWithData(const std::vector<uint8_t>& data, Auxiliary which) {
  return fromDecoded(imageio::decodeData(data.data(), data.size(), auxiliaryOptions(which)));
}

}  // namespace brenvia
