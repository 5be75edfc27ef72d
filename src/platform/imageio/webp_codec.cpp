// WebP reading and writing with libwebp; the ICC profile and EXIF block travel in the container's
// ICCP and EXIF chunks (libwebpdemux, libwebpmux).

#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"

#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace brenvia::imageio::detail {
namespace {

struct DemuxDeleter {
  void operator()(WebPDemuxer* d) const { WebPDemuxDelete(d); }
};
using DemuxPtr = std::unique_ptr<WebPDemuxer, DemuxDeleter>;

// The payload of the container's first chunk of this kind; empty when there is none.
WebPData chunk(const WebPDemuxer* demux, const char* fourcc) {
  WebPChunkIterator it{};
  WebPData data{nullptr, 0};
  if (WebPDemuxGetChunk(demux, fourcc, 1, &it)) data = it.chunk;
  WebPDemuxReleaseChunkIterator(&it);
  return data;
}

}  // namespace

bool readWebP(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why) {
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config) || WebPGetFeatures(source.data, source.size, &config.input) != VP8_STATUS_OK) {
    why = "WebP: the header is damaged";
    return false;
  }
  const WebPBitstreamFeatures& features = config.input;
  if (features.has_animation) {
    why = "WebP: animations are not supported";
    return false;
  }
  if (!pictureSizeAllowed(features.width, features.height, why)) return false;
  WebPData whole{source.data, source.size};
  DemuxPtr demux(WebPDemux(&whole));
  out.properties = baseProperties(features.width, features.height);
  if (demux) {
    WebPData exif = chunk(demux.get(), "EXIF");
    mergeExif(exif.bytes, exif.size, out.properties);
  }
  if (mode == ReadMode::HeaderOnly) return true;

  // The decoder's own scaler averages the picture down while decoding.
  const unsigned d = scaleDenominator(features.width, features.height, options.maxPixelSize);
  const int width = (features.width + int(d) - 1) / int(d), height = (features.height + int(d) - 1) / int(d);
  PixelBuffer pixels;
  CGPixelFormat format = features.has_alpha ? CGPixelFormat::RGBA8 : CGPixelFormat::RGB8;
  if (!pixels.allocate(width, height, format)) {
    why = "WebP: not enough memory for the pixels";
    return false;
  }
  config.options.use_scaling = d > 1;
  config.options.scaled_width = width;
  config.options.scaled_height = height;
  config.output.colorspace = features.has_alpha ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.u.RGBA = {pixels.data.get(), static_cast<int>(pixels.bytesPerRow), pixels.bytesPerRow * pixels.height};
  const VP8StatusCode status = WebPDecode(source.data, source.size, &config);
  WebPFreeDecBuffer(&config.output);
  if (status != VP8_STATUS_OK) {
    why = "WebP: the picture data is damaged or truncated";
    return false;
  }
  WebPData icc = demux ? chunk(demux.get(), "ICCP") : WebPData{nullptr, 0};
  CGColorSpaceRef space = adoptEmbeddedProfile(icc.bytes, icc.size, pixels);
  return pixels.finishInto(out, std::move(space), "WebP", why);
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {
namespace {

using namespace detail;

struct PictureFree {
  void operator()(WebPPicture* p) const { WebPPictureFree(p); }
};
struct MuxDeleter {
  void operator()(WebPMux* m) const { WebPMuxDelete(m); }
};

bool fail(std::string_view reason) {
  BVLog("[ImageIO] Could not encode WebP: " + std::string(reason));
  return false;
}

// The encoded picture in a container with ICCP and EXIF chunks.
bool addMetadata(const WebPData& bitstream, const OutputColor& color, int orientation, std::vector<uint8_t>& out) {
  std::unique_ptr<WebPMux, MuxDeleter> mux(WebPMuxNew());
  if (!mux || WebPMuxSetImage(mux.get(), &bitstream, 0) != WEBP_MUX_OK) return false;
  if (color.profile && !color.gray) {  // the picture is written as RGB: a grey profile cannot describe it
    WebPData icc{color.profile->data(), color.profile->size()};
    if (WebPMuxSetChunk(mux.get(), "ICCP", &icc, 0) != WEBP_MUX_OK) return false;
  }
  // The EXIF chunk holds the TIFF structure without the "Exif\0\0" prefix of the JPEG segment.
  std::vector<uint8_t> exif = orientation >= 2 && orientation <= 8 ? orientationExif(orientation) : std::vector<uint8_t>{};
  if (exif.size() > 6) {
    WebPData block{exif.data() + 6, exif.size() - 6};
    if (WebPMuxSetChunk(mux.get(), "EXIF", &block, 0) != WEBP_MUX_OK) return false;
  }
  WebPData assembled{nullptr, 0};
  if (WebPMuxAssemble(mux.get(), &assembled) != WEBP_MUX_OK) return false;
  out.assign(assembled.bytes, assembled.bytes + assembled.size);
  WebPDataClear(&assembled);
  return true;
}

}  // namespace

bool encodeWebP(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  out.clear();
  if (image.width() > WEBP_MAX_DIMENSION || image.height() > WEBP_MAX_DIMENSION)
    return fail("the picture is larger than WebP allows");
  WebPConfig config;
  if (!WebPConfigInit(&config)) return fail("libwebp version mismatch");
  config.quality = static_cast<float>(std::clamp(options.quality, 0.0, 1.0) * 100);
  config.thread_level = 1;

  const bool alpha = CGPixelFormatHasAlpha(image.format());
  const RowLayout layout = alpha ? RowLayout::RGBA8 : RowLayout::RGB8;
  const size_t rowBytes = rowLayoutBytesPerPixel(layout) * image.width();
  std::vector<uint8_t> rgb(rowBytes * image.height());
  for (size_t y = 0; y < image.height(); ++y) convertRow(image, y, layout, rgb.data() + y * rowBytes);

  WebPPicture picture;
  if (!WebPPictureInit(&picture)) return fail("libwebp version mismatch");
  std::unique_ptr<WebPPicture, PictureFree> owner(&picture);
  picture.width = static_cast<int>(image.width());
  picture.height = static_cast<int>(image.height());
  int imported = alpha ? WebPPictureImportRGBA(&picture, rgb.data(), static_cast<int>(rowBytes))
                       : WebPPictureImportRGB(&picture, rgb.data(), static_cast<int>(rowBytes));
  if (!imported) return fail("not enough memory");
  rgb = {};
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = &writer;
  bool ok = WebPEncode(&config, &picture) != 0;
  if (ok) ok = addMetadata(WebPData{writer.mem, writer.size}, chooseOutputColor(image), options.orientation, out);
  WebPMemoryWriterClear(&writer);
  if (!ok) {
    out.clear();
    return fail("encoder error");
  }
  return true;
}

}  // namespace brenvia::imageio
