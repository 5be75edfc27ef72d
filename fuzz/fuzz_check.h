#pragma once

// The checks the decoder fuzz targets make on every input.

#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"

#include <cstdlib>

namespace brenvia::imageio::fuzzing {

inline void check(bool condition) {
  if (!condition) std::abort();
}

// Decodes, and for a decoded picture checks what callers rely on: a bitmap no larger than the
// file's reported size, properties that serialise, and an encoder that accepts the result.
inline void decodeAndCheck(const uint8_t* data, size_t size, bool png) {
  static const bool quiet = [] {
    BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  // The last byte chooses a decode size, so the scaled JPEG paths are reached too.
  DecodeOptions options;
  if (size > 0 && data[size - 1] % 4 != 0) options.maxPixelSize = data[size - 1];
  auto decoded = decodeData(data, size, options);
  if (!decoded) return;
  const CGImage& image = *decoded->image;
  check(decoded->image != nullptr);
  check(decoded->properties["PixelWidth"].get<size_t>() >= image.width());
  check(decoded->properties["PixelHeight"].get<size_t>() >= image.height());
  int orientation = decoded->properties["Orientation"].get<int>();
  check(orientation >= 1 && orientation <= 8);
  (void)decoded->properties.dump();  // throws on text that is not UTF-8
  if (image.width() * image.height() <= 4096) {
    std::vector<uint8_t> bytes;
    EncodeOptions encode;
    encode.orientation = orientation;
    check(png ? encodePNG(image, encode, bytes) : encodeJPEG(image, encode, bytes));
    check(decodeData(bytes.data(), bytes.size()).has_value());
  }
}

// Auxiliary maps (HEIF): when present, untagged grey no larger than the pixel limit.
inline void decodeAuxiliaryAndCheck(const uint8_t* data, size_t size) {
  for (AuxiliaryImage which : {AuxiliaryImage::Disparity, AuxiliaryImage::PortraitMatte}) {
    DecodeOptions options;
    options.auxiliary = which;
    auto map = decodeData(data, size, options);
    if (!map) continue;
    check(map->image != nullptr && map->image->colorSpace() == nullptr);
    check(map->image->format() == CGPixelFormat::Gray8 || map->image->format() == CGPixelFormat::Gray16);
  }
}

}  // namespace brenvia::imageio::fuzzing
