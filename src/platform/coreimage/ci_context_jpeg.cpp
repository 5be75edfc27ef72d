#include "platform/coreimage/ci_context.h"

#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"

namespace brenvia {
namespace {

// Rows of a band: enough to keep encoder start-up costs small, few enough that the first bands
// are encoded while a picture is still being decoded.
constexpr size_t kJPEGBandRows = 64;

}  // namespace

std::optional<std::vector<uint8_t>> CIContext::JPEGRepresentationOfImage(const CIImageRef& image,
                                                                         const CGColorSpaceRef& colorSpace,
                                                                         const CIJPEGOptions& options) const {
  if (!image || CGRectIsEmpty(image->extent()) || CGRectIsInfinite(image->extent())) return std::nullopt;
  const CGRect bounds = CGRectIntegral(image->extent());
  imageio::EncodeOptions encode;
  encode.quality = options.quality;
  if (const Value* o = BVMember(image->properties(), "Orientation")) encode.orientation = int(BVNumber(*o).value_or(1));
  // Bands are encoded as they are rendered, each as one strip of the file.
  imageio::JPEGStripEncoder encoder(size_t(bounds.size.width), size_t(bounds.size.height),
                                    CGPixelFormat::RGBA8Premultiplied, colorSpace, encode, kJPEGBandRows);
  auto encodeBand = [&](size_t k, const CGImage& band) { return encoder.encodeStrip(k, band); };
  std::vector<uint8_t> bytes;
  if (!renderBands(image, bounds, colorSpace, encoder.stripRows(), encodeBand) || !encoder.finish(bytes))
    return std::nullopt;
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
