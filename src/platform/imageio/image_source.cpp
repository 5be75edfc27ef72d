// Entry points for reading: format detection, whole-file reads and the one-line failure reports.

#include "platform/foundation/file_reading.h"
#include "platform/foundation/log.h"
#include "platform/imageio/codec_internal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace brenvia::imageio {
namespace detail {

bool PixelBuffer::allocate(size_t w, size_t h, CGPixelFormat f) {
  if (w == 0 || h == 0 || w > CGImage::kMaxPixels / h) return false;
  width = w;
  height = h;
  format = f;
  bytesPerRow = (w * CGPixelFormatBytesPerPixel(f) + 15) & ~size_t{15};
  data = CGPixelMemoryAllocate(bytesPerRow * h, false);
  return data != nullptr;
}

CGImageRef PixelBuffer::finish(CGColorSpaceRef space) {
  return CGImage::create(width, height, bytesPerRow, format, std::move(space), std::move(data));
}

bool PixelBuffer::finishInto(DecodedImage& out, CGColorSpaceRef space, std::string_view format, std::string& why) {
  out.image = finish(std::move(space));
  if (!out.image) why = std::string(format) + ": the decoded bitmap is invalid";
  return out.image != nullptr;
}

bool pictureSizeAllowed(uint64_t width, uint64_t height, std::string& why) {
  if (width == 0 || height == 0) {
    why = "the picture has no pixels";
    return false;
  }
  if (width > CGImage::kMaxPixels / height) {
    why = "the picture is " + std::to_string(width) + " x " + std::to_string(height) +
          " pixels, more than the limit of " + std::to_string(CGImage::kMaxPixels);
    return false;
  }
  return true;
}

Value baseProperties(uint64_t width, uint64_t height) {
  return Value{{"Orientation", 1}, {"PixelWidth", width}, {"PixelHeight", height}};
}

void logFailure(std::string_view verb, std::string_view name, std::string_view reason) {
  std::string line = "[ImageIO] Could not ";
  line.append(verb).append(" `").append(name).append("`: ").append(reason);
  BVLog(line);
}

}  // namespace detail

namespace {

using detail::ReadMode;
using detail::Source;

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Only regular files are read, so that a folder, a device or a pipe fails at once.
FilePtr openForReading(const std::string& path, std::string& why) {
  if (!BVIsRegularFile(path, why)) return nullptr;
  FilePtr f(std::fopen(path.c_str(), "rb"));
  if (!f) why = std::string("cannot open the file (") + std::strerror(errno) + ")";
  return f;
}

bool readWholeFile(FILE* f, std::vector<uint8_t>& bytes, std::string& why) {
  if (std::fseek(f, 0, SEEK_END) == 0) {
    long size = std::ftell(f);
    if (size > 0) bytes.reserve(static_cast<size_t>(size));
    std::rewind(f);
  }
  uint8_t chunk[65536];
  for (;;) {
    size_t n = std::fread(chunk, 1, sizeof chunk, f);
    bytes.insert(bytes.end(), chunk, chunk + n);
    if (n < sizeof chunk) break;
  }
  if (std::ferror(f)) {
    why = std::string("cannot read the file (") + std::strerror(errno) + ")";
    return false;
  }
  return true;
}

enum class Format { Unknown, JPEG, PNG, HEIF, WebP, TIFF };

// Leading bytes needed to tell every format apart.
constexpr size_t kSniffBytes = 12;

bool isHEIFBrand(const uint8_t* brand) {
  static constexpr const char* kBrands[] = {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif"};
  return std::any_of(std::begin(kBrands), std::end(kBrands),
                     [&](const char* b) { return std::memcmp(brand, b, 4) == 0; });
}

Format sniff(const uint8_t* head, size_t size) {
  static constexpr uint8_t kPNG[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (size >= 3 && head[0] == 0xff && head[1] == 0xd8 && head[2] == 0xff) return Format::JPEG;
  if (size >= 8 && std::memcmp(head, kPNG, 8) == 0) return Format::PNG;
  if (size >= 12 && std::memcmp(head + 4, "ftyp", 4) == 0 && isHEIFBrand(head + 8)) return Format::HEIF;
  if (size >= 12 && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WEBP", 4) == 0) return Format::WebP;
  if (size >= 4 && (std::memcmp(head, "II*\0", 4) == 0 || std::memcmp(head, "MM\0*", 4) == 0)) return Format::TIFF;
  return Format::Unknown;
}

// Pictures of formats that cannot be decoded at a reduced size are reduced here (for HEIF, the
// thumbnail the decoder may have started from). Auxiliary maps keep their size.
bool reduceToMaxPixelSize(const DecodeOptions& options, DecodedImage& out, std::string& why) {
  if (options.auxiliary != AuxiliaryImage::None) return true;
  const unsigned d = detail::scaleDenominator(out.image->width(), out.image->height(), options.maxPixelSize);
  if (d == 1) return true;
  out.image = detail::reduceByAveraging(*out.image, d);
  if (!out.image) why = "not enough memory for the reduced picture";
  return out.image != nullptr;
}

// Reads with the decoder for the sniffed format; on failure logs the one line and gives false.
// The decoders of the newer formats take memory only, so a file is read in full for them.
bool readAny(const Source& source, const uint8_t* head, size_t headSize, ReadMode mode, const DecodeOptions& options,
             std::string_view name, DecodedImage& out) {
  std::string why;
  bool ok = false;
  Format format = headSize == 0 ? Format::Unknown : sniff(head, headSize);
  Source memory = source;
  std::vector<uint8_t> bytes;
  if (source.file && format != Format::JPEG && format != Format::PNG && format != Format::Unknown) {
    if (!readWholeFile(source.file, bytes, why)) format = Format::Unknown;
    memory.data = bytes.data();
    memory.size = bytes.size();
    memory.file = nullptr;
  }
  switch (format) {
    case Format::JPEG: ok = detail::readJPEG(memory, mode, options, out, why); break;
    case Format::PNG: ok = detail::readPNG(memory, mode, out, why); break;
    case Format::HEIF: ok = detail::readHEIF(memory, mode, options, out, why); break;
    case Format::WebP: ok = detail::readWebP(memory, mode, options, out, why); break;
    case Format::TIFF: ok = detail::readTIFF(memory, mode, out, why); break;
    case Format::Unknown:
      if (why.empty()) why = headSize == 0 ? "empty input" : "unrecognised file format";
      break;
  }
  const bool scaledWhileDecoding = format == Format::JPEG || format == Format::WebP;
  if (ok && out.image && !scaledWhileDecoding) ok = reduceToMaxPixelSize(options, out, why);
  if (!ok) detail::logFailure("read", name, why.empty() ? "unreadable data" : why);
  return ok;
}

// A JPEG file's map: nothing when it has none, and a log line when its description is malformed.
std::optional<DecodedImage> jpegAuxiliary(const uint8_t* data, size_t size, AuxiliaryImage which,
                                          std::string_view name) {
  DecodedImage out;
  std::string why;
  if (!detail::readJPEGAuxiliary(data, size, which, name, out, why)) {
    if (!why.empty()) detail::logFailure("read the depth data of", name, why);
    return std::nullopt;
  }
  if (!out.image) return std::nullopt;
  return out;
}

}  // namespace

std::optional<DecodedImage> decodeData(const uint8_t* data, size_t size, const DecodeOptions& options,
                                       std::string_view name) {
  DecodedImage out;
  if (!data) size = 0;
  // Only HEIF and JPEG files hold auxiliary maps; other files have none to report, which is no failure.
  if (options.auxiliary != AuxiliaryImage::None) {
    const Format format = sniff(data, size);
    if (format == Format::JPEG) return jpegAuxiliary(data, size, options.auxiliary, name);
    if (format != Format::HEIF) return std::nullopt;
  }
  Source source;
  source.data = data;
  source.size = size;
  if (!readAny(source, data, size, ReadMode::Pixels, options, name, out) || !out.image) return std::nullopt;
  return out;
}

std::optional<DecodedImage> decodeFile(const std::string& path, const DecodeOptions& options) {
  std::string why;
  auto bytes = std::make_shared<std::vector<uint8_t>>();
  FilePtr f = openForReading(path, why);
  bool jpegMap = false;
  if (f && options.auxiliary != AuxiliaryImage::None) {
    // Only HEIF and JPEG hold auxiliary maps: other files need not be read past their first bytes.
    uint8_t head[kSniffBytes];
    size_t headSize = std::fread(head, 1, sizeof head, f.get());
    const Format format = sniff(head, headSize);
    if (format != Format::HEIF && format != Format::JPEG) return std::nullopt;
    jpegMap = format == Format::JPEG;
  }
  if (!f || !readWholeFile(f.get(), *bytes, why)) {
    detail::logFailure("read", path, why);
    return std::nullopt;
  }
  f.reset();
  if (jpegMap) return jpegAuxiliary(bytes->data(), bytes->size(), options.auxiliary, path);
  DecodedImage out;
  Source source{bytes->data(), bytes->size(), nullptr, bytes, path};
  if (!readAny(source, bytes->data(), bytes->size(), ReadMode::Pixels, options, path, out) || !out.image)
    return std::nullopt;
  return out;
}

std::optional<Value> readProperties(const std::string& path) {
  std::string why;
  FilePtr f = openForReading(path, why);
  if (!f) {
    detail::logFailure("read", path, why);
    return std::nullopt;
  }
  uint8_t head[kSniffBytes];
  size_t headSize = std::fread(head, 1, sizeof head, f.get());
  std::rewind(f.get());
  DecodedImage out;
  Source source;
  source.file = f.get();
  if (!readAny(source, head, headSize, ReadMode::HeaderOnly, {}, path, out)) return std::nullopt;
  return std::move(out.properties);
}

}  // namespace brenvia::imageio
