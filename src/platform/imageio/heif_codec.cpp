// HEIF/HEIC reading and writing with libheif: the primary picture or a stored thumbnail of it, and
// its disparity map or portrait matte when asked for.

#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"

#include <libheif/heif.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace brenvia::imageio::detail {
namespace {

// Largest side libheif may decode to. libheif 1.15 sizes pixel planes in int: a larger picture (or
// a grid whose descriptor claims a larger canvas than the file declares) overflows that at 16-bit
// RGBA and is written past its buffer. Sides of 16384 and more are therefore refused.
constexpr int kMaxHEIFSide = 16383;

// The auxiliary type camera pictures give their portrait effects matte.
constexpr std::string_view kPortraitMatteType = "urn:com:apple:photo:2018:aux:portraiteffectsmatte";

struct ContextDeleter {
  void operator()(heif_context* c) const { heif_context_free(c); }
};
struct HandleDeleter {
  void operator()(heif_image_handle* h) const { heif_image_handle_release(h); }
};
struct ImageDeleter {
  void operator()(heif_image* i) const { heif_image_release(i); }
};
struct EncoderDeleter {
  void operator()(heif_encoder* e) const { heif_encoder_release(e); }
};
using ContextPtr = std::unique_ptr<heif_context, ContextDeleter>;
using HandlePtr = std::unique_ptr<heif_image_handle, HandleDeleter>;
using HeifImagePtr = std::unique_ptr<heif_image, ImageDeleter>;
using EncoderPtr = std::unique_ptr<heif_encoder, EncoderDeleter>;

bool failed(const heif_error& err, std::string& why) {
  if (err.code == heif_error_Ok) return false;
  why = std::string("HEIF: ") + (err.message ? err.message : "unreadable data");
  return true;
}

// The first EXIF block of the picture, without libheif's 4-byte offset prefix.
void mergeHEIFExif(heif_image_handle* handle, Value& properties) {
  heif_item_id id;
  if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) != 1) return;
  size_t size = heif_image_handle_get_metadata_size(handle, id);
  if (size <= 4 || size > (size_t{64} << 20)) return;
  std::vector<uint8_t> block(size);
  if (heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) return;
  uint32_t skip = uint32_t{block[0]} << 24 | uint32_t{block[1]} << 16 | uint32_t{block[2]} << 8 | block[3];
  if (skip < size - 4) mergeExif(block.data() + 4 + skip, size - 4 - skip, properties);
}

// The colour space of the primary picture: its ICC profile (applied to the pixels unless sRGB or
// Display P3), or the P3 primaries of an nclx description, else sRGB.
CGColorSpaceRef heifColorSpace(heif_image_handle* handle, PixelBuffer& pixels) {
  switch (heif_image_handle_get_color_profile_type(handle)) {
    case heif_color_profile_type_prof:
    case heif_color_profile_type_rICC: {
      std::vector<uint8_t> icc(heif_image_handle_get_raw_color_profile_size(handle));
      if (!icc.empty() && heif_image_handle_get_raw_color_profile(handle, icc.data()).code == heif_error_Ok)
        return adoptEmbeddedProfile(icc.data(), icc.size(), pixels);
      break;
    }
    case heif_color_profile_type_nclx: {
      heif_color_profile_nclx* nclx = nullptr;
      if (heif_image_handle_get_nclx_color_profile(handle, &nclx).code != heif_error_Ok) break;
      bool p3 = nclx->color_primaries == heif_color_primaries_SMPTE_EG_432_1;
      heif_nclx_color_profile_free(nclx);
      if (p3) return CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3);
      break;
    }
    default: break;
  }
  return CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
}

// Scales samples of `bits` significant bits to the full 16-bit range.
void widenRow(uint16_t* row, size_t count, int bits) {
  if (bits >= 16 || bits <= 0) return;
  const uint32_t max = (1u << bits) - 1;
  for (size_t i = 0; i < count; ++i) row[i] = static_cast<uint16_t>((std::min<uint32_t>(row[i], max) * 65535u + max / 2) / max);
}

// Decodes a handle into the buffer: RGB(A) 8 or 16 bits, or grey for auxiliary maps. Maps are
// decoded as RGB too, whatever their coding (monochrome, YCbCr, planar RGB), and read from red.
bool decodeHandle(heif_image_handle* handle, bool gray, PixelBuffer& pixels, std::string& why) {
  const int width = heif_image_handle_get_width(handle), height = heif_image_handle_get_height(handle);
  if (!pictureSizeAllowed(width > 0 ? width : 0, height > 0 ? height : 0, why)) return false;
  const bool deep = heif_image_handle_get_luma_bits_per_pixel(handle) > 8;
  const bool alpha = !gray && heif_image_handle_has_alpha_channel(handle);
  heif_chroma chroma = deep ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
                            : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
  CGPixelFormat format = gray    ? (deep ? CGPixelFormat::Gray16 : CGPixelFormat::Gray8)
                         : alpha ? (deep ? CGPixelFormat::RGBA16 : CGPixelFormat::RGBA8)
                                 : (deep ? CGPixelFormat::RGB16 : CGPixelFormat::RGB8);
  heif_image* raw = nullptr;
  if (failed(heif_decode_image(handle, &raw, heif_colorspace_RGB, chroma, nullptr), why)) return false;
  HeifImagePtr image(raw);
  int stride = 0;
  const uint8_t* plane = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
  if (!plane || heif_image_get_width(image.get(), heif_channel_interleaved) != width ||
      heif_image_get_height(image.get(), heif_channel_interleaved) != height) {
    why = "HEIF: the decoded picture does not match its declared size";
    return false;
  }
  if (!pixels.allocate(width, height, format)) {
    why = "HEIF: not enough memory for the pixels";
    return false;
  }
  const int bits = heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved);
  const size_t sampleBytes = deep ? 2 : 1, samples = alpha ? 4 : 3, kept = gray ? 1 : samples;
  for (int y = 0; y < height; ++y) {
    const uint8_t* in = plane + size_t(y) * stride;
    uint8_t* out = pixels.row(y);
    if (kept == samples) {
      std::memcpy(out, in, size_t(width) * samples * sampleBytes);
    } else {
      for (int x = 0; x < width; ++x) std::memcpy(out + x * sampleBytes, in + x * samples * sampleBytes, sampleBytes);
    }
    if (deep) widenRow(reinterpret_cast<uint16_t*>(out), size_t(width) * kept, bits);
  }
  return true;
}

// The primary picture's disparity map or portrait matte; null when it has none.
HandlePtr auxiliaryHandle(heif_image_handle* primary, AuxiliaryImage which) {
  heif_image_handle* found = nullptr;
  if (which == AuxiliaryImage::Disparity) {
    heif_item_id id;
    if (heif_image_handle_get_list_of_depth_image_IDs(primary, &id, 1) == 1)
      heif_image_handle_get_depth_image_handle(primary, id, &found);
    return HandlePtr(found);
  }
  const int filter = LIBHEIF_AUX_IMAGE_FILTER_OMIT_ALPHA | LIBHEIF_AUX_IMAGE_FILTER_OMIT_DEPTH;
  std::vector<heif_item_id> ids(heif_image_handle_get_number_of_auxiliary_images(primary, filter));
  ids.resize(std::max(0, heif_image_handle_get_list_of_auxiliary_image_IDs(primary, filter, ids.data(), int(ids.size()))));
  for (heif_item_id id : ids) {
    heif_image_handle* aux = nullptr;
    if (heif_image_handle_get_auxiliary_image_handle(primary, id, &aux).code != heif_error_Ok) continue;
    HandlePtr owner(aux);
    const char* type = nullptr;
    if (heif_image_handle_get_auxiliary_type(aux, &type).code != heif_error_Ok) continue;
    bool matte = type && kPortraitMatteType == type;
    heif_image_handle_free_auxiliary_types(aux, &type);
    if (matte) return owner;
  }
  return nullptr;
}

// The smallest thumbnail stored with the picture whose longer side is at least `minimum`; null
// when there is none. Thumbnails that are not smaller than the picture, or not of its shape (up to
// a pixel of rounding), are passed over.
HandlePtr thumbnailHandle(heif_image_handle* primary, size_t minimum) {
  const int64_t width = heif_image_handle_get_width(primary), height = heif_image_handle_get_height(primary);
  std::vector<heif_item_id> ids(size_t(std::max(0, heif_image_handle_get_number_of_thumbnails(primary))));
  ids.resize(size_t(std::max(0, heif_image_handle_get_list_of_thumbnail_IDs(primary, ids.data(), int(ids.size())))));
  HandlePtr best;
  int64_t bestSide = 0;
  for (heif_item_id id : ids) {
    heif_image_handle* found = nullptr;
    if (heif_image_handle_get_thumbnail(primary, id, &found).code != heif_error_Ok) continue;
    HandlePtr thumbnail(found);
    const int64_t w = heif_image_handle_get_width(found), h = heif_image_handle_get_height(found);
    const int64_t side = std::max(w, h);
    const bool smaller = w >= 1 && h >= 1 && w <= width && h <= height && side < std::max(width, height);
    const bool sameShape = std::abs(w * height - h * width) <= std::max(width, height);
    if (smaller && sameShape && side >= int64_t(minimum) && (!best || side < bestSide)) {
      best = std::move(thumbnail);
      bestSide = side;
    }
  }
  return best;
}

// The near and far planes of a depth map that stores distance uniformly between them; nothing
// for maps that store disparity or inverse distance already, or whose planes are not given.
std::optional<std::pair<double, double>> uniformDepthPlanes(heif_image_handle* primary) {
  heif_item_id id;
  const heif_depth_representation_info* info = nullptr;
  if (heif_image_handle_get_list_of_depth_image_IDs(primary, &id, 1) != 1 ||
      !heif_image_handle_get_depth_image_representation_info(primary, id, &info) || !info)
    return std::nullopt;
  std::optional<std::pair<double, double>> planes;
  if (info->depth_representation_type == heif_depth_representation_type_uniform_Z && info->has_z_near &&
      info->has_z_far && info->z_near > 0 && info->z_near < info->z_far)
    planes = std::make_pair(info->z_near, info->z_far);
  heif_depth_representation_info_free(info);
  return planes;
}

// Auxiliary maps are data, not colour: grey and untagged. A map of distances is turned into
// disparity, the form callers of the disparity map work with.
bool readAuxiliary(heif_image_handle* primary, AuxiliaryImage which, DecodedImage& out, std::string& why) {
  HandlePtr aux = auxiliaryHandle(primary, which);
  if (!aux) return true;
  PixelBuffer pixels;
  if (!decodeHandle(aux.get(), true, pixels, why)) return false;
  out.properties = baseProperties(pixels.width, pixels.height);
  out.image = pixels.finish(nullptr);
  const auto planes = which == AuxiliaryImage::Disparity ? uniformDepthPlanes(primary) : std::nullopt;
  if (planes && out.image) out.image = disparityFromUniformDepth(*out.image, planes->first, planes->second);
  if (!out.image) why = "HEIF: the auxiliary map could not be made";
  return out.image != nullptr;
}

}  // namespace

CGImageRef disparityFromUniformDepth(const CGImage& depth, double zNear, double zFar) {
  const bool deep = depth.format() == CGPixelFormat::Gray16;
  if (!deep && depth.format() != CGPixelFormat::Gray8) return nullptr;
  PixelBuffer pixels;
  if (!pixels.allocate(depth.width(), depth.height(), CGPixelFormat::Gray16)) return nullptr;
  const double top = deep ? 65535.0 : 255.0;
  for (size_t y = 0; y < depth.height(); ++y) {
    const uint8_t* in = depth.row(y);
    auto* out = reinterpret_cast<uint16_t*>(pixels.row(y));
    for (size_t x = 0; x < depth.width(); ++x) {
      uint16_t sample = in[x];
      if (deep) std::memcpy(&sample, in + 2 * x, 2);
      const double z = zNear + sample / top * (zFar - zNear);
      out[x] = uint16_t(std::lround(65535.0 * zNear / z));
    }
  }
  return pixels.finish(nullptr);
}

bool readHEIF(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why) {
  ContextPtr context(heif_context_alloc());
  if (!context) {
    why = "HEIF: not enough memory";
    return false;
  }
  heif_context_set_maximum_image_size_limit(context.get(), kMaxHEIFSide);
  heif_image_handle* primaryRaw = nullptr;
  if (failed(heif_context_read_from_memory_without_copy(context.get(), source.data, source.size, nullptr), why) ||
      failed(heif_context_get_primary_image_handle(context.get(), &primaryRaw), why))
    return false;
  HandlePtr primary(primaryRaw);
  if (options.auxiliary != AuxiliaryImage::None) return readAuxiliary(primary.get(), options.auxiliary, out, why);

  const int width = heif_image_handle_get_width(primary.get()), height = heif_image_handle_get_height(primary.get());
  if (!pictureSizeAllowed(width > 0 ? width : 0, height > 0 ? height : 0, why)) return false;
  out.properties = baseProperties(width, height);
  mergeHEIFExif(primary.get(), out.properties);
  // libheif applies the file's rotation and mirroring while decoding; an EXIF orientation tag
  // beside them only repeats what they say.
  out.properties["Orientation"] = 1;
  if (mode == ReadMode::HeaderOnly) return true;

  // A stored thumbnail that is large enough spares decoding the full picture; it takes the
  // primary's colour when it carries none of its own.
  HandlePtr thumbnail = options.maxPixelSize ? thumbnailHandle(primary.get(), options.maxPixelSize) : nullptr;
  heif_image_handle* chosen = thumbnail ? thumbnail.get() : primary.get();
  PixelBuffer pixels;
  if (!decodeHandle(chosen, false, pixels, why)) return false;
  const bool ownColour = heif_image_handle_get_color_profile_type(chosen) != heif_color_profile_type_not_present;
  CGColorSpaceRef space = heifColorSpace(ownColour ? chosen : primary.get(), pixels);
  return pixels.finishInto(out, std::move(space), "HEIF", why);
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {
namespace {

using namespace detail;

heif_error appendToVector(heif_context*, const void* data, size_t size, void* user) {
  auto* out = static_cast<std::vector<uint8_t>*>(user);
  auto* bytes = static_cast<const uint8_t*>(data);
  out->insert(out->end(), bytes, bytes + size);
  return heif_error{heif_error_Ok, heif_suberror_Unspecified, "Success"};
}

// The bitmap in libheif's interleaved 8-bit layout, turned upright by the EXIF orientation: HEIF
// readers take the picture as stored and ignore an EXIF orientation tag.
HeifImagePtr uprightHeifImage(const CGImage& image, int orientation, bool alpha) {
  const RowLayout layout = alpha ? RowLayout::RGBA8 : RowLayout::RGB8;
  const size_t bpp = rowLayoutBytesPerPixel(layout);
  const size_t w = image.width(), h = image.height();
  const bool swap = orientation >= 5 && orientation <= 8;
  const size_t outW = swap ? h : w, outH = swap ? w : h;
  heif_image* raw = nullptr;
  if (heif_image_create(int(outW), int(outH), heif_colorspace_RGB,
                        alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &raw)
          .code != heif_error_Ok)
    return nullptr;
  HeifImagePtr out(raw);
  if (heif_image_add_plane(raw, heif_channel_interleaved, int(outW), int(outH), 8).code != heif_error_Ok) return nullptr;
  int stride = 0;
  uint8_t* plane = heif_image_get_plane(raw, heif_channel_interleaved, &stride);
  std::vector<uint8_t> row(w * bpp);
  for (size_t y = 0; y < h; ++y) {
    convertRow(image, y, layout, row.data());
    for (size_t x = 0; x < w; ++x) {
      // Where stored pixel (x, y) lands in the upright picture, for EXIF orientations 1-8.
      size_t ox = x, oy = y;
      switch (orientation) {
        case 2: ox = w - 1 - x; break;
        case 3: ox = w - 1 - x; oy = h - 1 - y; break;
        case 4: oy = h - 1 - y; break;
        case 5: ox = y; oy = x; break;
        case 6: ox = h - 1 - y; oy = x; break;
        case 7: ox = h - 1 - y; oy = w - 1 - x; break;
        case 8: ox = y; oy = w - 1 - x; break;
        default: break;
      }
      std::memcpy(plane + oy * size_t(stride) + ox * bpp, row.data() + x * bpp, bpp);
    }
  }
  return out;
}

bool fail(std::string_view reason) {
  BVLog("[ImageIO] Could not encode HEIF: " + std::string(reason));
  return false;
}

}  // namespace

bool encodeHEIF(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  out.clear();
  ContextPtr context(heif_context_alloc());
  heif_encoder* encoderRaw = nullptr;
  if (!context ||
      heif_context_get_encoder_for_format(context.get(), heif_compression_HEVC, &encoderRaw).code != heif_error_Ok)
    return fail("no HEVC encoder");
  EncoderPtr encoder(encoderRaw);
  const int quality = std::clamp(int(std::lround(options.quality * 100)), 1, 100);
  heif_encoder_set_lossy_quality(encoder.get(), quality);
  heif_encoder_set_parameter_string(encoder.get(), "chroma", quality == 100 ? "444" : "420");

  HeifImagePtr heifImage = uprightHeifImage(image, options.orientation, hasVisibleAlpha(image));
  if (!heifImage) return fail("not enough memory");
  OutputColor color = chooseOutputColor(image);
  if (color.profile && !color.gray)  // the picture is written as RGB: a grey profile cannot describe it
    heif_image_set_raw_color_profile(heifImage.get(), "prof", color.profile->data(), color.profile->size());
  heif_error err = heif_context_encode_image(context.get(), heifImage.get(), encoder.get(), nullptr, nullptr);
  heif_writer writer{1, appendToVector};
  if (err.code == heif_error_Ok) err = heif_context_write(context.get(), &writer, &out);
  if (err.code != heif_error_Ok) {
    out.clear();
    return fail(err.message ? err.message : "encoder error");
  }
  return true;
}

}  // namespace brenvia::imageio
