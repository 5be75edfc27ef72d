#include "platform/coreimage/ci_context.h"

#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"

namespace brenvia {
namespace {

// Rows of a band: enough to keep encoder start-up costs small, few enough that the first bands
// are encoded while a picture is still being decoded.
constexpr size_t kJPEGBandRows = 64;

// The encoder of the image's extent with every band rendered and encoded into it, each band as
// one strip as soon as it is done (and passed on to the sink, when there is one); null when the
// image cannot be rendered or encoded.
std::unique_ptr<imageio::JPEGStripEncoder> encodeBands(const CIContext& context, const CIImageRef& image,
                                                       const CGColorSpaceRef& colorSpace, const CIJPEGOptions& options,
                                                       imageio::JPEGStripEncoder::Sink sink) {
  if (!image || CGRectIsEmpty(image->extent()) || CGRectIsInfinite(image->extent())) return nullptr;
  const CGRect bounds = CGRectIntegral(image->extent());
  imageio::EncodeOptions encode;
  encode.quality = options.quality;
  if (const Value* o = BVMember(image->properties(), "Orientation")) encode.orientation = int(BVNumber(*o).value_or(1));
  auto encoder = std::make_unique<imageio::JPEGStripEncoder>(size_t(bounds.size.width), size_t(bounds.size.height),
                                                             CGPixelFormat::RGBA8Premultiplied, colorSpace, encode,
                                                             kJPEGBandRows);
  if (sink) encoder->setSink(std::move(sink));
  auto encodeBand = [&](size_t k, const CGImage& band) { return encoder->encodeStrip(k, band); };
  if (!context.renderBands(image, bounds, colorSpace, encoder->stripRows(), encodeBand)) return nullptr;
  return encoder;
}

}  // namespace

std::optional<std::vector<uint8_t>> CIContext::JPEGRepresentationOfImage(const CIImageRef& image,
                                                                         const CGColorSpaceRef& colorSpace,
                                                                         const CIJPEGOptions& options) const {
  auto encoder = encodeBands(*this, image, colorSpace, options, nullptr);
  std::vector<uint8_t> bytes;
  if (!encoder || !encoder->finish(bytes)) return std::nullopt;
  return bytes;
}

bool CIContext::writeJPEGRepresentationOfImage(const CIImageRef& image, const std::string& path,
                                               const CGColorSpaceRef& colorSpace, const CIJPEGOptions& options,
                                               std::string* error) const {
  // The file is written as the strips come, under a temporary name until it is complete.
  imageio::AtomicFileWriter file(path);
  auto append = [&file](const uint8_t* data, size_t size) { return file.append(data, size); };
  auto encoder = file.ok() ? encodeBands(*this, image, colorSpace, options, append) : nullptr;
  if (encoder && encoder->finish() && file.commit()) return true;
  if (error) *error = file.ok() ? "the image could not be rendered or encoded" : file.error();
  return false;
}

}  // namespace brenvia
