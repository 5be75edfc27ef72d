#pragma once

// Reading and writing picture files (JPEG, PNG, HEIF/HEIC, WebP and TIFF) as CGImage bitmaps.
//
// Decoding keeps pixels in their compact form (8 or 16 bits per channel) and reports file metadata
// as a property dictionary. EXIF orientation is reported, never applied to the pixels; HEIF is the
// exception: its rotation and mirroring are applied while decoding and it reports orientation 1. Pictures
// with an embedded profile that is neither sRGB nor Display P3 are converted to sRGB while
// decoding, so every decoded image is tagged sRGB, Display P3 or device grey.

#include "platform/foundation/value.h"
#include "platform/graphics/cg_image.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia::imageio {

// The pictures a camera stores beside the main one (HEIF only).
enum class AuxiliaryImage { None, Disparity, PortraitMatte };

struct DecodeOptions {
  // 0: full size. Otherwise the decoder may return a smaller picture whose longer side is still at
  // least this many pixels: reduced by 1/2, 1/4 or 1/8, the smallest that keeps the longer side
  // >= maxPixelSize, with sizes rounded up. JPEG scales while decoding and WebP with its own
  // scaler; PNG, TIFF and HEIF average blocks of pixels after the decode. HEIF first takes the
  // smallest thumbnail stored in the file, of the picture's shape, whose longer side is at least
  // maxPixelSize, and reduces that by the same rule. Auxiliary maps keep their own size.
  size_t maxPixelSize = 0;
  // Not None: decode that auxiliary map of the primary picture instead, as untagged Gray8 or
  // Gray16: from HEIF, or from a JPEG file's XMP or multi-picture index. A file without one gives
  // nothing and logs nothing; a JPEG whose map metadata is malformed gives nothing with a log line.
  // A depth map that stores distance between two given planes comes as disparity (Gray16, 1 at the
  // near plane).
  AuxiliaryImage auxiliary = AuxiliaryImage::None;
  // Large JPEG files (decodeFile only) may return before their rows are decoded: the rows arrive
  // from a thread of the decoder's own, and readers of the bitmap wait for the rows they touch. A
  // failure found then logs the usual line and leaves the bitmap incomplete (CGImage::complete).
  bool background = false;
};

struct DecodedImage {
  // JPEG: RGB8, or Gray8 for grey pictures. PNG: Gray8, RGB8, RGBA8 or their 16-bit forms; palettes
  // are expanded and tRNS transparency becomes an alpha channel. HEIF: RGB8 or RGBA8, 16-bit forms
  // for deeper files. WebP: RGB8 or RGBA8. TIFF: 8 and 16-bit grey, RGB and RGBA as stored; other
  // layouts (palettes, CMYK, YCbCr, odd depths) become RGBA8, premultiplied when they have alpha.
  CGImageRef image;
  // "Orientation" (EXIF 1-8, 1 when absent), "PixelWidth" and "PixelHeight" of the file's full
  // size, plus "{TIFF}" and "{Exif}" groups with the common camera tags found in the file.
  Value properties;
};

// The format is recognised by its leading bytes. Gives nothing for unknown formats, truncated or
// corrupt data, empty input and pictures whose header claims more than CGImage::kMaxPixels pixels
// (refused before any pixel memory is allocated). Each failure logs exactly one line:
//   [ImageIO] Could not read `<name>`: <reason>
// where name is the file path, or the `name` argument for data.
std::optional<DecodedImage> decodeFile(const std::string& path, const DecodeOptions& options = {});
std::optional<DecodedImage> decodeData(const uint8_t* data, size_t size, const DecodeOptions& options = {},
                                       std::string_view name = "data");

// The properties decodeFile would report, read from the file's header without decoding pixels.
// Failures log one line as above.
std::optional<Value> readProperties(const std::string& path);

struct EncodeOptions {
  // JPEG: encoder quality round(quality * 100) clamped to 1..100. Quality 100 keeps full-resolution
  // chroma (4:4:4); lower qualities subsample it (4:2:0).
  double quality = 1.0;
  // Stored as the EXIF orientation tag when it is 2..8 (JPEG APP1 segment, PNG eXIf chunk, WebP
  // EXIF chunk, TIFF orientation tag). HEIF applies it to the pixels instead, since HEIF readers
  // take the stored picture as upright.
  int orientation = 1;
  // PNG and TIFF: 16 bits per channel when the source has more than 8 (16-bit and float formats).
  bool sixteenBit = false;
};

// Any CGPixelFormat is accepted: premultiplied pixels are unpremultiplied, float components clamped
// to 0..1 and rounded; JPEG drops alpha. Grey pixels stay grey when the image's colour space is grey
// or absent. The colour space's ICC profile is embedded (JPEG APP2, PNG iCCP) unless the space is
// plain sRGB or device grey (PNG then writes an sRGB chunk; JPEG embeds nothing); images without a
// colour space embed nothing. HEIF, WebP and TIFF embed the profile the same way (HEIF colr, WebP
// ICCP chunk, TIFF ICC tag); HEIF and WebP are always RGB, 8 bits. HEIF, WebP and TIFF leave out
// an alpha channel that is opaque everywhere. Quality is used by JPEG, HEIF
// (quality 100 keeps full chroma) and WebP; TIFF is compressed losslessly (deflate). On failure
// `out` is left empty, one line is logged and false returned.
bool encodeJPEG(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out);
bool encodePNG(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out);
bool encodeHEIF(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out);
bool encodeWebP(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out);
bool encodeTIFF(const CGImage& image, const EncodeOptions& options, std::vector<uint8_t>& out);

// The formats pictures are written in.
enum class ImageFormat { JPEG, PNG, HEIF, WebP, TIFF };

// The format a file name asks for by its extension, in any case: .jpg and .jpeg, .png, .heic and
// .heif, .webp, .tif and .tiff. Nothing for other names.
std::optional<ImageFormat> formatForPath(std::string_view path);
// The extensions formatForPath knows, in the order above.
const std::vector<std::string_view>& formatExtensions();
// Whether the format keeps 16 bits per channel when EncodeOptions::sixteenBit asks (PNG, TIFF).
bool formatHoldsSixteenBits(ImageFormat format);
// The encoder of the format, as above.
bool encode(const CGImage& image, ImageFormat format, const EncodeOptions& options, std::vector<uint8_t>& out);

// A JPEG encoded as horizontal strips on any threads in any order, then joined: the way to encode
// a picture while it is still being rendered, without a bitmap of the whole frame. Every strip but
// the last holds stripRows() rows; strip k takes those rows of `image` starting at `firstRow`
// (an image holding only that strip passes 0). All strips must have the width, layout and colour
// space given here. The output is the file encodeJPEG writes, with restart markers between strips.
class JPEGStripEncoder {
 public:
  JPEGStripEncoder(size_t width, size_t height, CGPixelFormat format, const CGColorSpaceRef& colorSpace,
                   const EncodeOptions& options, size_t preferredStripRows);
  ~JPEGStripEncoder();
  JPEGStripEncoder(const JPEGStripEncoder&) = delete;
  JPEGStripEncoder& operator=(const JPEGStripEncoder&) = delete;

  // Takes the file's bytes in order; false stops the encoding.
  using Sink = std::function<bool(const uint8_t* data, size_t size)>;

  size_t stripRows() const;
  size_t stripCount() const;
  // False when the strip could not be encoded; finish then fails with the reason.
  bool encodeStrip(size_t k, const CGImage& image, size_t firstRow = 0);
  // Set before the first strip is encoded: each strip then goes to the sink as soon as it and all
  // strips before it are done, from the encoding thread (one call at a time).
  void setSink(Sink sink);
  // Sends what is left to the sink; false, with the one log line of encodeJPEG, when a strip failed
  // or is missing or the sink refused the bytes.
  bool finish();
  // The joined file in memory (no sink set).
  bool finish(std::vector<uint8_t>& out);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// How far a written file is safe. Flushed: its data reach the disk before it takes the
// destination's name, so it survives a power loss too. Renamed: a crashing process never leaves a
// partial file, but a power loss may; for files that are checked when read and can be made again
// (caches), and that are written too often to wait for the disk each time.
enum class WriteDurability { Flushed, Renamed };

// A file written under a temporary name beside its destination and renamed over it by commit(),
// so the destination is either untouched or complete. Dropped without a commit, the temporary
// file is removed. After a failure error() says why and every later call fails. A destination that
// is a symbolic link is followed (the link stays), an existing one keeps its permissions, and the
// first write into a folder removes temporary files left there by processes that no longer run.
class AtomicFileWriter {
 public:
  // Removes the temporary files of every writer still open; safe to call from a signal handler, so
  // that a program stopped by a signal leaves none behind.
  static void removeOpenTemporaryFiles();

  explicit AtomicFileWriter(std::string path, WriteDurability durability = WriteDurability::Flushed);
  ~AtomicFileWriter();
  AtomicFileWriter(const AtomicFileWriter&) = delete;
  AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  bool append(const uint8_t* data, size_t size);
  // Flushes the data to disk and moves the file into place.
  bool commit();

 private:
  bool fail(const char* what);

  std::string path_, temp_, error_;
  WriteDurability durability_;
  int slot_ = -1;  // in the table removeOpenTemporaryFiles reads
  int fd_ = -1;
  size_t written_ = 0;
  bool committed_ = false;
};

// Writes the bytes to a temporary file in the destination's folder and renames it over `path`, so
// the destination is either untouched or complete. On failure the temporary file is removed and
// the reason is stored in `error`, or logged as "[ImageIO] Could not write `<path>`: <reason>" when
// `error` is null.
bool writeFileAtomically(const std::string& path, const std::vector<uint8_t>& bytes, std::string* error = nullptr,
                         WriteDurability durability = WriteDurability::Flushed);

}  // namespace brenvia::imageio
