#pragma once

// Pieces shared by the codecs. Not part of the public interface.

#include "platform/imageio/image_io.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brenvia::imageio::detail {

// Encoded bytes to read: a block in memory, or an open file read on demand (header-only reads).
// A block with an owner may be read after the call returns (decoding in the background).
struct Source {
  const uint8_t* data = nullptr;
  size_t size = 0;
  FILE* file = nullptr;
  std::shared_ptr<const std::vector<uint8_t>> owner;
  std::string name;  // for the log line of a failure found in the background
};

enum class ReadMode { HeaderOnly, Pixels };

// Each reader fills `out` (no image in HeaderOnly mode) and returns true, or returns false with a
// short reason for the log line.
bool readJPEG(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why);
bool readPNG(const Source& source, ReadMode mode, DecodedImage& out, std::string& why);
// These read from memory only (source.data). readHEIF leaves `out.image` null, and succeeds, when
// an auxiliary map is asked for and the file has none.
bool readHEIF(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why);
bool readWebP(const Source& source, ReadMode mode, const DecodeOptions& options, DecodedImage& out, std::string& why);
bool readTIFF(const Source& source, ReadMode mode, DecodedImage& out, std::string& why);
// The depth map or portrait matte a phone stored beside a JPEG file's picture, as untagged grey
// (distances become disparity). Succeeds with `out.image` null when the file has none; fails, with
// a reason, when the metadata that describes one is malformed or points outside the file, and
// without one when the stored map itself could not be decoded (the decoder logged it as `name`).
bool readJPEGAuxiliary(const uint8_t* data, size_t size, AuxiliaryImage which, std::string_view name, DecodedImage& out,
                       std::string& why);

// The reduction a decode with maxPixelSize makes: the largest of 8, 4 and 2 that keeps the longer
// side, rounded up, at least `target` pixels; 1 when none does or no target is set. Every format
// reduces by the same rule, JPEG by DCT scaling, WebP by its own scaler, HEIF by taking a
// thumbnail where the file has one large enough, and the rest by averaging after the decode.
unsigned scaleDenominator(size_t width, size_t height, size_t target);
// The image reduced by `denominator`, each pixel the mean of the block it covers (blocks at the
// right and bottom edges may be smaller, so sizes round up). Straight alpha weighs the colours.
// Null when memory is short.
CGImageRef reduceByAveraging(const CGImage& image, unsigned denominator);

// A depth map that stores distance, uniform between the planes zNear and zFar (0 < zNear < zFar),
// as the disparity its callers expect: zNear / Z, so 1 at the near plane, in 16-bit grey. Null
// for other layouts than untagged Gray8 and Gray16, or when memory is short.
CGImageRef disparityFromUniformDepth(const CGImage& depth, double zNear, double zFar);

// False, with a reason, when a picture of this size must not be decoded.
bool pictureSizeAllowed(uint64_t width, uint64_t height, std::string& why);

// A bitmap being filled by a decoder. The memory is not cleared: decoders write every row.
struct PixelBuffer {
  size_t width = 0, height = 0, bytesPerRow = 0;
  CGPixelFormat format = CGPixelFormat::RGB8;
  std::shared_ptr<uint8_t[]> data;

  // False when the size is beyond CGImage::kMaxPixels or memory is short.
  bool allocate(size_t w, size_t h, CGPixelFormat f);
  uint8_t* row(size_t y) { return data.get() + y * bytesPerRow; }
  CGImageRef finish(CGColorSpaceRef space);
  // finish() into out.image; false, with "<format>: the decoded bitmap is invalid", when that fails.
  bool finishInto(DecodedImage& out, CGColorSpaceRef space, std::string_view format, std::string& why);
};

// {"Orientation": 1, "PixelWidth": w, "PixelHeight": h}.
Value baseProperties(uint64_t width, uint64_t height);
// Adds what an EXIF block says to the properties: "Orientation" when valid, "{TIFF}" and "{Exif}"
// groups. The block starts with "Exif\0\0" (JPEG APP1) or directly with the TIFF header (PNG eXIf).
// Unreadable blocks are ignored.
void mergeExif(const uint8_t* data, size_t size, Value& properties);
// Metadata text as valid UTF-8: trailing NULs and spaces are dropped, and bytes that do not form
// UTF-8 are read as Latin-1 (files are meant to hold ASCII; cameras also write Latin-1 or UTF-8).
std::string textValue(const unsigned char* p, size_t n);
// An EXIF block ("Exif\0\0" + TIFF) holding only the orientation tag; empty when it cannot be built.
std::vector<uint8_t> orientationExif(int orientation);

// The colour space for decoded RGB pixels given the file's embedded profile (may be empty). A
// profile that is neither sRGB nor Display P3 is applied to the pixels, which become sRGB; grey,
// unusable or mismatched profiles leave the pixels as they are, taken as sRGB.
CGColorSpaceRef adoptEmbeddedProfile(const uint8_t* icc, size_t size, PixelBuffer& pixels);
// The space adoptEmbeddedProfile gives when it leaves the pixels as they are; nothing when the
// profile would be applied to them.
std::optional<CGColorSpaceRef> spaceKeepingPixels(const uint8_t* icc, size_t size);

// CMYK rows to sRGB RGB8, through the file's CMYK profile when it has one, else by the simple
// complement formula. `inverted` is the Adobe convention (255 = no ink).
class CMYKConverter {
 public:
  CMYKConverter(const uint8_t* icc, size_t size, bool inverted);
  ~CMYKConverter();
  CMYKConverter(const CMYKConverter&) = delete;
  CMYKConverter& operator=(const CMYKConverter&) = delete;
  void convert(const uint8_t* cmyk, uint8_t* rgb, size_t pixels) const;

 private:
  void* transform_ = nullptr;
  bool inverted_;
};

// How an encoder writes an image's colour.
struct OutputColor {
  bool gray = false;                              // one channel
  bool plainSRGB = false;                         // no profile needed: sRGB (or sRGB-curve grey)
  const std::vector<uint8_t>* profile = nullptr;  // profile to embed, or null
};
OutputColor chooseOutputColor(CGPixelFormat format, const CGColorSpaceRef& space);
inline OutputColor chooseOutputColor(const CGImage& image) {
  return chooseOutputColor(image.format(), image.colorSpace());
}

// Whether the format holds more than 8 bits per component (16-bit and float formats).
bool hasDeepSamples(CGPixelFormat f);
// Whether some pixel is not fully opaque (false for formats without alpha). Encoders whose alpha
// costs a separate plane leave it out when nothing shows through.
bool hasVisibleAlpha(const CGImage& image);

// Pixel layouts the encoders consume; 16-bit components are host-endian.
enum class RowLayout { Gray8, Gray16, RGB8, RGB16, RGBA8, RGBA16 };
size_t rowLayoutBytesPerPixel(RowLayout layout);
// Row y of the image in `layout`, straight alpha, clamped and rounded. Grey expands to RGB; colour
// never narrows to grey (encoders only ask for grey layouts from grey images).
void convertRow(const CGImage& image, size_t y, RowLayout layout, uint8_t* out);
// When row y already is in `layout`, its address; otherwise null.
const uint8_t* rowIfAlready(const CGImage& image, size_t y, RowLayout layout);

// encodeJPEG with a chosen number of threads (large pictures are encoded in strips).
bool encodeJPEGWithThreads(const CGImage& image, const EncodeOptions& options, unsigned threads,
                           std::vector<uint8_t>& out);

// "[ImageIO] Could not <verb> `<name>`: <reason>"
void logFailure(std::string_view verb, std::string_view name, std::string_view reason);

}  // namespace brenvia::imageio::detail
