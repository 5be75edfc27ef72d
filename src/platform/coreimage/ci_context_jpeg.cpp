#include "platform/coreimage/ci_context.h"

#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"

namespace brenvia {

std::optional<std::vector<uint8_t>> CIContext::JPEGRepresentationOfImage(const CIImageRef& image,
                                                                         const CGColorSpaceRef& colorSpace,
                                                                         const CIJPEGOptions& options) const {
  if (!image || CGRectIsEmpty(image->extent()) || CGRectIsInfinite(image->extent())) return std::nullopt;
  CGImageRef bitmap = createCGImage(image, CGRectIntegral(image->extent()), kCIFormatRGBA8, colorSpace);
  if (!bitmap) return std::nullopt;
  imageio::EncodeOptions encode;
  encode.quality = options.quality;
  if (const Value* o = BVMember(image->properties(), "Orientation")) encode.orientation = int(BVNumber(*o).value_or(1));
  std::vector<uint8_t> bytes;
  if (!imageio::encodeJPEG(*bitmap, encode, bytes)) return std::nullopt;
  return bytes;
}

bool CIContext::writeJPEGRepresentationOfImage(const CIImageRef& image, const std::string& path,
                                               const CGColorSpaceRef& colorSpace, const CIJPEGOptions& options,
                                               std::string* error) const {
  auto bytes = JPEGRepresentationOfImage(image, colorSpace, options);
  if (!bytes) {
    if (error) *error = "the image could not be rendered or encoded";
    return false;
  }
  return imageio::writeFileAtomically(path, *bytes, error);
}

}  // namespace brenvia
