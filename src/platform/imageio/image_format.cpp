// Choosing an output format by file name, and the one entry to its encoder.

#include "platform/imageio/image_io.h"

#include <cctype>
#include <string>

namespace brenvia::imageio {
namespace {

struct Extension {
  std::string_view name;
  ImageFormat format;
};

constexpr Extension kExtensions[] = {
    {".jpg", ImageFormat::JPEG},  {".jpeg", ImageFormat::JPEG}, {".png", ImageFormat::PNG},
    {".heic", ImageFormat::HEIF}, {".heif", ImageFormat::HEIF}, {".webp", ImageFormat::WebP},
    {".tif", ImageFormat::TIFF},  {".tiff", ImageFormat::TIFF},
};

// The file name's extension with its dot, lower-cased; empty when the name has none (a leading dot
// starts a hidden name, not an extension).
std::string extensionOf(std::string_view path) {
  const size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  std::string extension(name.substr(dot));
  for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
  return extension;
}

}  // namespace

std::optional<ImageFormat> formatForPath(std::string_view path) {
  const std::string extension = extensionOf(path);
  for (const Extension& known : kExtensions) {
    if (known.name == extension) return known.format;
  }
  return std::nullopt;
}

const std::vector<std::string_view>& formatExtensions() {
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> all;
    for (const Extension& extension : kExtensions) all.push_back(extension.name);
    return all;
  }();
  return names;
}

bool formatHoldsSixteenBits(ImageFormat format) { return format == ImageFormat::PNG || format == ImageFormat::TIFF; }

bool encode(const CGImage& image, ImageFormat format, const EncodeOptions& options, std::vector<uint8_t>& out) {
  switch (format) {
    case ImageFormat::JPEG: return encodeJPEG(image, options, out);
    case ImageFormat::PNG: return encodePNG(image, options, out);
    case ImageFormat::HEIF: return encodeHEIF(image, options, out);
    case ImageFormat::WebP: return encodeWebP(image, options, out);
    case ImageFormat::TIFF: return encodeTIFF(image, options, out);
  }
  return false;
}

}  // namespace brenvia::imageio
