// PNG reading and writing with libspng, row by row so no second full-size buffer is needed.

#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"

#include <spng.h>

#include <cstring>

namespace brenvia::imageio::detail {
namespace {

// Per-side limit handed to libspng; the pixel-count limit is checked separately.
constexpr uint32_t kMaxSide = static_cast<uint32_t>(CGImage::kMaxPixels);
// Ancillary chunks (profiles, text, EXIF) larger than this are refused, and all stored chunks
// together may not exceed the cache limit: a small file cannot make us inflate gigabytes of text.
constexpr size_t kChunkSizeLimit = size_t{64} << 20;
constexpr size_t kChunkCacheLimit = size_t{128} << 20;

struct ContextDeleter {
  void operator()(spng_ctx* c) const { spng_ctx_free(c); }
};
using ContextPtr = std::unique_ptr<spng_ctx, ContextDeleter>;

std::string pngError(int err) { return std::string("PNG: ") + spng_strerror(err); }

// The compact bitmap layout for a PNG and the libspng output format that produces it.
struct Target {
  CGPixelFormat format;
  int spngFormat;
  int flags;
};

Target chooseTarget(const spng_ihdr& h, bool hasTRNS) {
  bool deep = h.bit_depth == 16;
  bool alpha =
      h.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA || h.color_type == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA || hasTRNS;
  if (alpha) {
    return deep ? Target{CGPixelFormat::RGBA16, SPNG_FMT_RGBA16, SPNG_DECODE_TRNS}
                : Target{CGPixelFormat::RGBA8, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS};
  }
  if (h.color_type == SPNG_COLOR_TYPE_GRAYSCALE) {
    return deep ? Target{CGPixelFormat::Gray16, SPNG_FMT_PNG, 0} : Target{CGPixelFormat::Gray8, SPNG_FMT_G8, 0};
  }
  // Truecolour, or a palette expanded to RGB. Only truecolour can have 16-bit samples.
  return deep ? Target{CGPixelFormat::RGB16, SPNG_FMT_PNG, 0} : Target{CGPixelFormat::RGB8, SPNG_FMT_RGB8, 0};
}

void mergePNGExif(spng_ctx* ctx, Value& properties, bool& found) {
  spng_exif exif{};
  if (found || spng_get_exif(ctx, &exif) != 0) return;
  mergeExif(reinterpret_cast<const uint8_t*>(exif.data), exif.length, properties);
  found = true;
}

int appendToVector(spng_ctx*, void* user, void* data, size_t length) {
  auto* out = static_cast<std::vector<uint8_t>*>(user);
  auto* bytes = static_cast<const uint8_t*>(data);
  try {
    out->insert(out->end(), bytes, bytes + length);
  } catch (...) {
    return SPNG_IO_ERROR;
  }
  return 0;
}

}  // namespace

bool readPNG(const Source& source, ReadMode mode, DecodedImage& out, std::string& why) {
  ContextPtr owner(spng_ctx_new(0));
  spng_ctx* ctx = owner.get();
  if (!ctx) {
    why = "PNG: not enough memory";
    return false;
  }
  spng_set_crc_action(ctx, SPNG_CRC_ERROR, SPNG_CRC_DISCARD);
  spng_set_image_limits(ctx, kMaxSide, kMaxSide);
  spng_set_chunk_limits(ctx, kChunkSizeLimit, kChunkCacheLimit);
  int err = source.file ? spng_set_png_file(ctx, source.file) : spng_set_png_buffer(ctx, source.data, source.size);
  spng_ihdr ihdr{};
  if (!err) err = spng_get_ihdr(ctx, &ihdr);
  if (err) {
    why = pngError(err);
    return false;
  }
  if (!pictureSizeAllowed(ihdr.width, ihdr.height, why)) return false;
  out.properties = baseProperties(ihdr.width, ihdr.height);
  bool exifFound = false;
  if (mode == ReadMode::HeaderOnly) {
    mergePNGExif(ctx, out.properties, exifFound);
    return true;
  }

  // Deflate expands at most 1032:1, so a short file cannot hold a large picture: refuse it
  // before allocating anything for the pixels.
  if (!source.file) {
    uint64_t channels = ihdr.color_type == SPNG_COLOR_TYPE_TRUECOLOR         ? 3
                        : ihdr.color_type == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA ? 4
                        : ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA ? 2
                                                                             : 1;
    uint64_t packedRowBytes = uint64_t{ihdr.width} * channels * ihdr.bit_depth / 8;
    if (uint64_t{source.size} * 1032 < packedRowBytes * ihdr.height) {
      why = "PNG: the data is too short for its picture size";
      return false;
    }
  }
  // Reading tRNS also reads every chunk before the pixel data, so this is where most damage shows.
  spng_trns trns{};
  err = spng_get_trns(ctx, &trns);
  bool hasTRNS = err == 0;
  if (err == SPNG_ECHUNKAVAIL) err = 0;
  Target target = chooseTarget(ihdr, hasTRNS);
  PixelBuffer pixels;
  size_t rowBytes = ihdr.width * CGPixelFormatBytesPerPixel(target.format);
  size_t imageBytes = 0;
  if (!err) err = spng_decoded_image_size(ctx, target.spngFormat, &imageBytes);
  if (!err && imageBytes != rowBytes * ihdr.height) err = SPNG_EINTERNAL;
  if (!err) err = spng_decode_image(ctx, nullptr, 0, target.spngFormat, target.flags | SPNG_DECODE_PROGRESSIVE);
  if (err) {
    why = pngError(err);
    return false;
  }
  if (!pixels.allocate(ihdr.width, ihdr.height, target.format)) {
    why = "PNG: not enough memory for the pixels";
    return false;
  }
  // Interlaced pictures visit each row several times; every pixel is written by the last pass.
  do {
    spng_row_info info{};
    err = spng_get_row_info(ctx, &info);
    if (!err && info.row_num >= ihdr.height) err = SPNG_EINTERNAL;
    if (!err) err = spng_decode_row(ctx, pixels.row(info.row_num), rowBytes);
  } while (!err);
  if (err != SPNG_EOI) {
    why = pngError(err);
    return false;
  }

  CGColorSpaceRef space;
  if (target.format == CGPixelFormat::Gray8 || target.format == CGPixelFormat::Gray16) {
    space = CGColorSpaceCreateDeviceGray();
  } else {
    spng_iccp iccp{};
    bool hasICC = spng_get_iccp(ctx, &iccp) == 0;
    space = adoptEmbeddedProfile(hasICC ? reinterpret_cast<const uint8_t*>(iccp.profile) : nullptr,
                                 hasICC ? iccp.profile_len : 0, pixels);
  }
  // EXIF may also follow the pixel data; the picture is complete even if those chunks are damaged.
  mergePNGExif(ctx, out.properties, exifFound);
  if (!exifFound && spng_decode_chunks(ctx) == 0) mergePNGExif(ctx, out.properties, exifFound);

  out.image = pixels.finish(std::move(space));
  if (!out.image) {
    why = "PNG: the decoded bitmap is invalid";
    return false;
  }
  return true;
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {

bool encodePNG(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  using namespace detail;
  out.clear();
  ContextPtr owner(spng_ctx_new(SPNG_CTX_ENCODER));
  spng_ctx* ctx = owner.get();
  if (!ctx) {
    BVLog("[ImageIO] Could not encode PNG: not enough memory");
    return false;
  }
  OutputColor color = chooseOutputColor(image);
  // An opaque picture needs no alpha channel, whatever its bitmap holds.
  bool alpha = hasVisibleAlpha(image);
  bool deep = options.sixteenBit && hasDeepSamples(image.format());
  RowLayout layout = color.gray ? (deep ? RowLayout::Gray16 : RowLayout::Gray8)
                     : alpha    ? (deep ? RowLayout::RGBA16 : RowLayout::RGBA8)
                                : (deep ? RowLayout::RGB16 : RowLayout::RGB8);
  spng_ihdr ihdr{};
  ihdr.width = static_cast<uint32_t>(image.width());
  ihdr.height = static_cast<uint32_t>(image.height());
  ihdr.bit_depth = deep ? 16 : 8;
  ihdr.color_type = color.gray ? SPNG_COLOR_TYPE_GRAYSCALE
                    : alpha    ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA
                               : SPNG_COLOR_TYPE_TRUECOLOR;

  int err = spng_set_png_stream(ctx, appendToVector, &out);
  if (!err) err = spng_set_ihdr(ctx, &ihdr);
  if (!err && color.plainSRGB) err = spng_set_srgb(ctx, 0);
  spng_iccp iccp{};
  if (!err && color.profile) {
    std::strcpy(iccp.profile_name, "ICC profile");
    iccp.profile_len = color.profile->size();
    iccp.profile = reinterpret_cast<char*>(const_cast<uint8_t*>(color.profile->data()));
    err = spng_set_iccp(ctx, &iccp);
  }
  // The eXIf chunk holds the TIFF structure without the "Exif\0\0" prefix of the JPEG segment.
  std::vector<uint8_t> exifBlock;
  spng_exif exif{};
  if (!err && options.orientation >= 2 && options.orientation <= 8) {
    exifBlock = orientationExif(options.orientation);
    if (exifBlock.size() > 6) {
      exif.length = exifBlock.size() - 6;
      exif.data = reinterpret_cast<char*>(exifBlock.data() + 6);
      err = spng_set_exif(ctx, &exif);
    }
  }
  if (!err) err = spng_encode_image(ctx, nullptr, 0, SPNG_FMT_PNG, SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE);

  size_t rowBytes = rowLayoutBytesPerPixel(layout) * image.width();
  std::vector<uint8_t> scratch;
  for (size_t y = 0; !err && y < image.height(); ++y) {
    const uint8_t* row = rowIfAlready(image, y, layout);
    if (!row) {
      scratch.resize(rowBytes);
      convertRow(image, y, layout, scratch.data());
      row = scratch.data();
    }
    err = spng_encode_row(ctx, row, rowBytes);
  }
  if (err != SPNG_EOI) {
    out.clear();
    BVLog("[ImageIO] Could not encode PNG: " + std::string(spng_strerror(err)));
    return false;
  }
  return true;
}

}  // namespace brenvia::imageio
