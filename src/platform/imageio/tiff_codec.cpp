// TIFF reading and writing with libtiff, on memory. 8 and 16-bit grey, RGB and RGBA strips are read
// as stored; every other layout goes through libtiff's RGBA reader.

#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <vector>

namespace brenvia::imageio::detail {
namespace {

// Largest single allocation libtiff may make for strips, tiles and tag data.
constexpr tmsize_t kMaxTIFFAllocation = tmsize_t{512} << 20;
// Rows per call of the RGBA reader.
constexpr uint32_t kRGBABand = 64;
// Colour and alpha: at most CMYK with alpha.
constexpr uint16_t kMaximumSamples = 5;

// A TIFF held in memory: read from `data`, or written into `sink`.
struct MemoryFile {
  const uint8_t* data = nullptr;
  size_t size = 0;
  std::vector<uint8_t>* sink = nullptr;
  uint64_t position = 0;
  std::string error;
};

MemoryFile& fileOf(thandle_t h) { return *static_cast<MemoryFile*>(h); }

tmsize_t readProc(thandle_t h, void* buffer, tmsize_t n) {
  MemoryFile& f = fileOf(h);
  if (n < 0 || f.position >= f.size) return 0;
  size_t count = std::min<uint64_t>(uint64_t(n), f.size - f.position);
  std::memcpy(buffer, f.data + f.position, count);
  f.position += count;
  return tmsize_t(count);
}

tmsize_t writeProc(thandle_t h, void* buffer, tmsize_t n) {
  MemoryFile& f = fileOf(h);
  if (!f.sink || n < 0) return -1;
  if (f.position + uint64_t(n) > f.sink->size()) f.sink->resize(f.position + n);
  std::memcpy(f.sink->data() + f.position, buffer, size_t(n));
  f.position += n;
  return n;
}

uint64_t sizeOf(const MemoryFile& f) { return f.sink ? f.sink->size() : f.size; }

toff_t seekProc(thandle_t h, toff_t offset, int whence) {
  MemoryFile& f = fileOf(h);
  uint64_t base = whence == SEEK_CUR ? f.position : whence == SEEK_END ? sizeOf(f) : 0;
  f.position = base + offset;
  return f.position;
}

int closeProc(thandle_t) { return 0; }
toff_t sizeProc(thandle_t h) { return sizeOf(fileOf(h)); }
// Reads see the memory directly (libtiff only reads through a mapping). libtiff 4.5's unmapped
// tile reader also refuses valid uncompressed tiles.
int mapProc(thandle_t h, void** base, toff_t* size) {
  MemoryFile& f = fileOf(h);
  if (!f.data) return 0;
  *base = const_cast<uint8_t*>(f.data);
  *size = f.size;
  return 1;
}
void unmapProc(thandle_t, void*, toff_t) {}

// Keeps libtiff's first error message for the log line; warnings are dropped.
int keepError(TIFF*, void* user, const char*, const char* format, va_list args) {
  auto& error = fileOf(user).error;
  if (error.empty()) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    error = text;
  }
  return 1;
}

int dropWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TIFFCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};
using TIFFPtr = std::unique_ptr<TIFF, TIFFCloser>;

TIFFPtr openMemory(MemoryFile& file, const char* mode) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (!options) return nullptr;
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, kMaxTIFFAllocation);
  TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options, dropWarning, &file);
  TIFFPtr tiff(TIFFClientOpenExt("memory", mode, &file, readProc, writeProc, seekProc, closeProc, sizeProc, mapProc,
                                 unmapProc, options));
  TIFFOpenOptionsFree(options);
  return tiff;
}

std::string tiffError(const MemoryFile& file, const char* fallback) {
  return "TIFF: " + (file.error.empty() ? std::string(fallback) : file.error);
}

uint16_t field16(TIFF* tiff, ttag_t tag, uint16_t fallback) {
  uint16_t value = fallback;
  return TIFFGetFieldDefaulted(tiff, tag, &value) == 1 ? value : fallback;
}

// "Orientation" and the descriptive tags of the "{TIFF}" group.
void addTIFFProperties(TIFF* tiff, Value& properties) {
  uint16_t orientation = field16(tiff, TIFFTAG_ORIENTATION, 1);
  if (orientation >= 1 && orientation <= 8) properties["Orientation"] = orientation;
  static constexpr std::pair<ttag_t, const char*> kTextTags[] = {{TIFFTAG_IMAGEDESCRIPTION, "ImageDescription"},
                                                                 {TIFFTAG_MAKE, "Make"},
                                                                 {TIFFTAG_MODEL, "Model"},
                                                                 {TIFFTAG_SOFTWARE, "Software"},
                                                                 {TIFFTAG_DATETIME, "DateTime"},
                                                                 {TIFFTAG_ARTIST, "Artist"},
                                                                 {TIFFTAG_HOSTCOMPUTER, "HostComputer"},
                                                                 {TIFFTAG_COPYRIGHT, "Copyright"}};
  Value group = Value::object();
  for (auto [tag, name] : kTextTags) {
    const char* text = nullptr;
    if (TIFFGetField(tiff, tag, &text) == 1 && text)
      group[name] = textValue(reinterpret_cast<const unsigned char*>(text), std::strlen(text));
  }
  if (orientation >= 1 && orientation <= 8) group["Orientation"] = orientation;
  if (!group.empty()) properties["{TIFF}"] = std::move(group);
}

// The compact format for strips stored as 8 or 16-bit grey, RGB or straight RGBA; none otherwise.
std::optional<CGPixelFormat> directFormat(TIFF* tiff) {
  const uint16_t bits = field16(tiff, TIFFTAG_BITSPERSAMPLE, 1), samples = field16(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  const uint16_t photometric = field16(tiff, TIFFTAG_PHOTOMETRIC, 0xffff);
  if (TIFFIsTiled(tiff) || field16(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) != PLANARCONFIG_CONTIG ||
      field16(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) != SAMPLEFORMAT_UINT || (bits != 8 && bits != 16))
    return std::nullopt;
  const bool deep = bits == 16;
  if (photometric == PHOTOMETRIC_MINISBLACK && samples == 1) return deep ? CGPixelFormat::Gray16 : CGPixelFormat::Gray8;
  if (photometric != PHOTOMETRIC_RGB) return std::nullopt;
  if (samples == 3) return deep ? CGPixelFormat::RGB16 : CGPixelFormat::RGB8;
  uint16_t extraCount = 0;
  uint16_t* extraTypes = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
  if (samples == 4 && extraCount == 1 && extraTypes && extraTypes[0] != EXTRASAMPLE_ASSOCALPHA)
    return deep ? CGPixelFormat::RGBA16 : CGPixelFormat::RGBA8;
  return std::nullopt;
}

bool readDirect(TIFF* tiff, PixelBuffer& pixels, const MemoryFile& file, std::string& why) {
  if (uint64_t(TIFFScanlineSize64(tiff)) != pixels.width * CGPixelFormatBytesPerPixel(pixels.format)) {
    why = "TIFF: unexpected row size";
    return false;
  }
  for (uint32_t y = 0; y < pixels.height; ++y) {
    if (TIFFReadScanline(tiff, pixels.row(y), y, 0) != 1) {
      why = tiffError(file, "the picture data is damaged or truncated");
      return false;
    }
  }
  return true;
}

// Grey with one alpha sample, 8 or 16 bits, in strips: the form the direct reader cannot hold and
// libtiff's RGBA reader gets wrong (it takes straight alpha as premultiplied).
bool isGreyWithAlpha(TIFF* tiff) {
  const uint16_t bits = field16(tiff, TIFFTAG_BITSPERSAMPLE, 1),
                 photometric = field16(tiff, TIFFTAG_PHOTOMETRIC, 0xffff);
  return !TIFFIsTiled(tiff) && field16(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_CONTIG &&
         field16(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) == SAMPLEFORMAT_UINT && (bits == 8 || bits == 16) &&
         field16(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) == 2 &&
         (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE);
}

// Grey and alpha samples widened to straight RGBA of the same depth; white-is-zero grey is turned
// over, and associated alpha divided out.
template <class Sample>
void widenGreyAlpha(const Sample* in, Sample* out, size_t width, bool whiteIsZero, bool associated) {
  constexpr uint32_t kMax = std::numeric_limits<Sample>::max();
  for (size_t x = 0; x < width; ++x) {
    const uint32_t alpha = in[2 * x + 1];
    uint32_t grey = in[2 * x];
    if (associated) grey = alpha ? std::min(kMax, (grey * kMax + alpha / 2) / alpha) : 0;
    if (whiteIsZero) grey = kMax - grey;
    out[4 * x] = out[4 * x + 1] = out[4 * x + 2] = Sample(grey);
    out[4 * x + 3] = Sample(alpha);
  }
}

bool readGreyAlpha(TIFF* tiff, PixelBuffer& pixels, const MemoryFile& file, std::string& why) {
  const bool deep = field16(tiff, TIFFTAG_BITSPERSAMPLE, 8) == 16;
  const bool whiteIsZero = field16(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) == PHOTOMETRIC_MINISWHITE;
  uint16_t extraCount = 0;
  uint16_t* extraTypes = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
  const bool associated = extraCount == 1 && extraTypes && extraTypes[0] == EXTRASAMPLE_ASSOCALPHA;
  const size_t sampleBytes = deep ? 2 : 1;
  if (uint64_t(TIFFScanlineSize64(tiff)) != pixels.width * 2 * sampleBytes) {
    why = "TIFF: unexpected row size";
    return false;
  }
  std::vector<uint8_t> row(pixels.width * 2 * sampleBytes);
  for (uint32_t y = 0; y < pixels.height; ++y) {
    if (TIFFReadScanline(tiff, row.data(), y, 0) != 1) {
      why = tiffError(file, "the picture data is damaged or truncated");
      return false;
    }
    if (deep) {
      widenGreyAlpha(reinterpret_cast<const uint16_t*>(row.data()), reinterpret_cast<uint16_t*>(pixels.row(y)),
                     pixels.width, whiteIsZero, associated);
    } else {
      widenGreyAlpha(row.data(), pixels.row(y), pixels.width, whiteIsZero, associated);
    }
  }
  return true;
}

// libtiff's RGBA reader: any photometric interpretation and depth, to 8-bit RGB or premultiplied
// RGBA, rows as stored (the file's orientation is not applied).
bool readThroughRGBA(TIFF* tiff, PixelBuffer& pixels, const MemoryFile& file, std::string& why) {
  char message[1024] = {};
  TIFFRGBAImage reader{};
  if (!TIFFRGBAImageOK(tiff, message) || !TIFFRGBAImageBegin(&reader, tiff, 0, message)) {
    why = std::string("TIFF: ") + (message[0] ? message : "unsupported layout");
    return false;
  }
  reader.req_orientation = reader.orientation;
  const bool alpha = reader.alpha != 0;
  const uint32_t w = reader.width, h = reader.height;
  bool ok = pixels.allocate(w, h, alpha ? CGPixelFormat::RGBA8Premultiplied : CGPixelFormat::RGB8);
  if (!ok) why = "TIFF: not enough memory for the pixels";
  // Bands hold whole strips: a band that starts inside a compressed strip decodes it from its start
  // again, which for a tall single strip makes the read quadratic in the height.
  uint32_t stripRows = kRGBABand;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &stripRows);
  const uint32_t bandRows = TIFFIsTiled(tiff) ? kRGBABand : std::clamp(stripRows, kRGBABand, std::max(h, 1u));
  std::vector<uint32_t> band;
  if (ok) band.resize(size_t(w) * std::min(h, bandRows));
  for (uint32_t y = 0; ok && y < h; y += bandRows) {
    const uint32_t rows = std::min(bandRows, h - y);
    reader.row_offset = int(y);
    reader.col_offset = 0;
    ok = TIFFRGBAImageGet(&reader, band.data(), w, rows) == 1;
    if (!ok) why = tiffError(file, "the picture data is damaged or truncated");
    for (uint32_t r = 0; ok && r < rows; ++r) {
      uint8_t* out = pixels.row(y + r);
      const uint32_t* in = band.data() + size_t(r) * w;
      for (uint32_t x = 0; x < w; ++x) {
        uint32_t p = in[x];
        uint8_t rgba[4] = {uint8_t(TIFFGetR(p)), uint8_t(TIFFGetG(p)), uint8_t(TIFFGetB(p)), uint8_t(TIFFGetA(p))};
        std::memcpy(out + x * (alpha ? 4 : 3), rgba, alpha ? 4 : 3);
      }
    }
  }
  TIFFRGBAImageEnd(&reader);
  return ok;
}

CGColorSpaceRef tiffColorSpace(TIFF* tiff, PixelBuffer& pixels) {
  if (pixels.format == CGPixelFormat::Gray8 || pixels.format == CGPixelFormat::Gray16)
    return CGColorSpaceCreateDeviceGray();
  uint32_t size = 0;
  void* icc = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &icc) != 1) size = 0;
  return adoptEmbeddedProfile(static_cast<const uint8_t*>(icc), size, pixels);
}

}  // namespace

bool readTIFF(const Source& source, ReadMode mode, DecodedImage& out, std::string& why) {
  MemoryFile file;
  file.data = source.data;
  file.size = source.size;
  TIFFPtr tiff = openMemory(file, "r");
  if (!tiff) {
    why = tiffError(file, "the header is damaged");
    return false;
  }
  uint32_t width = 0, height = 0;
  TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
  if (!pictureSizeAllowed(width, height, why)) return false;
  out.properties = baseProperties(width, height);
  addTIFFProperties(tiff.get(), out.properties);
  if (mode == ReadMode::HeaderOnly) return true;

  // Samples beyond colour and alpha cannot be used and only cost decoding work.
  if (const uint16_t samples = field16(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 1); samples > kMaximumSamples) {
    why = "TIFF: " + std::to_string(samples) + " samples a pixel are more than a picture uses";
    return false;
  }
  PixelBuffer pixels;
  if (isGreyWithAlpha(tiff.get())) {
    const bool deep = field16(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8) == 16;
    if (!pixels.allocate(width, height, deep ? CGPixelFormat::RGBA16 : CGPixelFormat::RGBA8)) {
      why = "TIFF: not enough memory for the pixels";
      return false;
    }
    if (!readGreyAlpha(tiff.get(), pixels, file, why)) return false;
  } else if (auto format = directFormat(tiff.get())) {
    if (!pixels.allocate(width, height, *format)) {
      why = "TIFF: not enough memory for the pixels";
      return false;
    }
    if (!readDirect(tiff.get(), pixels, file, why)) return false;
  } else if (!readThroughRGBA(tiff.get(), pixels, file, why)) {
    return false;
  }
  CGColorSpaceRef space = tiffColorSpace(tiff.get(), pixels);
  return pixels.finishInto(out, std::move(space), "TIFF", why);
}

}  // namespace brenvia::imageio::detail

namespace brenvia::imageio {
namespace {

using namespace detail;

bool fail(std::string_view reason) {
  BVLog("[ImageIO] Could not encode TIFF: " + std::string(reason));
  return false;
}

RowLayout layoutFor(const CGImage& image, const OutputColor& color, bool deep) {
  if (color.gray) return deep ? RowLayout::Gray16 : RowLayout::Gray8;
  if (hasVisibleAlpha(image)) return deep ? RowLayout::RGBA16 : RowLayout::RGBA8;
  return deep ? RowLayout::RGB16 : RowLayout::RGB8;
}

bool writeTags(TIFF* tiff, const CGImage& image, const EncodeOptions& options, const OutputColor& color,
               RowLayout layout, bool deep) {
  const uint16_t samples = uint16_t(rowLayoutBytesPerPixel(layout) / (deep ? 2 : 1));
  bool ok = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(image.width())) &&
            TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(image.height())) &&
            TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, deep ? 16 : 8) &&
            TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples) &&
            TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, color.gray ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
            TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
            TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  if (ok && samples == 4) {
    uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    ok = TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  if (ok && options.orientation >= 2 && options.orientation <= 8)
    ok = TIFFSetField(tiff, TIFFTAG_ORIENTATION, uint16_t(options.orientation));
  if (ok && color.profile)
    ok = TIFFSetField(tiff, TIFFTAG_ICCPROFILE, uint32_t(color.profile->size()), color.profile->data());
  return ok;
}

}  // namespace

bool encodeTIFF(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out) {
  out.clear();
  MemoryFile file;
  file.sink = &out;
  TIFFPtr tiff = openMemory(file, "w");
  if (!tiff) return fail("not enough memory");
  const OutputColor color = chooseOutputColor(image);
  const bool deep = options.sixteenBit && hasDeepSamples(image.format());
  const RowLayout layout = layoutFor(image, color, deep);
  bool ok = writeTags(tiff.get(), image, options, color, layout, deep);
  std::vector<uint8_t> scratch(rowLayoutBytesPerPixel(layout) * image.width());
  for (size_t y = 0; ok && y < image.height(); ++y) {
    convertRow(image, y, layout, scratch.data());
    ok = TIFFWriteScanline(tiff.get(), scratch.data(), uint32_t(y), 0) == 1;
  }
  if (ok) ok = TIFFWriteDirectory(tiff.get()) == 1;
  tiff.reset();
  if (!ok) {
    out.clear();
    return fail(file.error.empty() ? "encoder error" : file.error);
  }
  return true;
}

}  // namespace brenvia::imageio
