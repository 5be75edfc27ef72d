#include "platform/graphics/cairo_support.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

namespace brenvia::graphics {
namespace {

uint8_t premultiply(unsigned c, unsigned a) { return uint8_t((c * a + 127) / 255); }
uint8_t from16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return uint8_t((v + 128u) / 257u);
}
uint8_t fromFloat(const uint8_t* p) {
  float v;
  std::memcpy(&v, p, 4);
  v = v > 0 ? (v < 1 ? v : 1) : 0;  // NaN gives 0
  return uint8_t(v * 255.0f + 0.5f);
}

// One pixel of any layout as premultiplied 8-bit r, g, b, a.
void readPixel(CGPixelFormat format, const uint8_t* p, uint8_t out[4]) {
  switch (format) {
    case CGPixelFormat::Gray8: out[0] = out[1] = out[2] = p[0], out[3] = 255; return;
    case CGPixelFormat::RGB8: out[0] = p[0], out[1] = p[1], out[2] = p[2], out[3] = 255; return;
    case CGPixelFormat::RGBA8:
      out[0] = premultiply(p[0], p[3]), out[1] = premultiply(p[1], p[3]), out[2] = premultiply(p[2], p[3]);
      out[3] = p[3];
      return;
    case CGPixelFormat::RGBA8Premultiplied: std::memcpy(out, p, 4); return;
    case CGPixelFormat::BGRA8Premultiplied: out[0] = p[2], out[1] = p[1], out[2] = p[0], out[3] = p[3]; return;
    case CGPixelFormat::Gray16: out[0] = out[1] = out[2] = from16(p), out[3] = 255; return;
    case CGPixelFormat::RGB16: out[0] = from16(p), out[1] = from16(p + 2), out[2] = from16(p + 4), out[3] = 255; return;
    case CGPixelFormat::RGBA16: {
      uint8_t a = from16(p + 6);
      out[0] = premultiply(from16(p), a), out[1] = premultiply(from16(p + 2), a);
      out[2] = premultiply(from16(p + 4), a), out[3] = a;
      return;
    }
    case CGPixelFormat::RGBAFloatPremultiplied:
      for (int i = 0; i < 4; ++i) out[i] = fromFloat(p + 4 * i);
      return;
  }
}

// Unpremultiplied 8-bit colour from one RGB space to another: decode, change primaries, encode.
class SpaceConversion {
 public:
  // Nothing when there is nothing to convert: a space missing, grey, or equivalent to the other.
  static std::optional<SpaceConversion> between(const CGColorSpaceRef& from, const CGColorSpaceRef& to) {
    if (!from || !to || from->model() != CGColorSpaceModel::RGB || to->model() != CGColorSpaceModel::RGB ||
        from->isEquivalent(*to)) {
      return std::nullopt;
    }
    SpaceConversion conversion;
    for (int i = 0; i < 256; ++i) conversion.decode_[size_t(i)] = float(curve(*from, i / 255.0, false));
    const color::Mat3 m = color::multiply(color::invert(to->toXYZ()), from->toXYZ());
    std::copy(m.begin(), m.end(), conversion.matrix_.begin());
    for (int i = 0; i <= kEncodeSteps; ++i) {
      conversion.encode_[size_t(i)] = uint8_t(std::lround(255.0 * curve(*to, double(i) / kEncodeSteps, true)));
    }
    return conversion;
  }

  void apply(uint8_t rgb[3]) const {
    const float r = decode_[rgb[0]], g = decode_[rgb[1]], b = decode_[rgb[2]];
    for (int i = 0; i < 3; ++i) {
      const float linear = std::clamp(matrix_[size_t(3 * i)] * r + matrix_[size_t(3 * i + 1)] * g +
                                          matrix_[size_t(3 * i + 2)] * b, 0.0f, 1.0f);
      rgb[i] = encode_[size_t(std::lround(linear * kEncodeSteps))];
    }
  }

 private:
  // Linear values are encoded through a table this fine: under one byte of error near black.
  static constexpr int kEncodeSteps = 4096;
  static double curve(const CGColorSpace& space, double v, bool encode) {
    if (space.transfer() == CGColorSpace::Transfer::Linear) return v;
    return encode ? color::srgbEncode(v) : color::srgbDecode(v);
  }
  std::array<float, 256> decode_{};
  std::array<float, 9> matrix_{};
  std::array<uint8_t, kEncodeSteps + 1> encode_{};
};

void convertPremultiplied(const SpaceConversion& conversion, uint8_t p[4]) {
  if (p[3] == 0) return;
  uint8_t rgb[3];
  for (int i = 0; i < 3; ++i) rgb[i] = uint8_t(std::min(255, (p[i] * 255 + p[3] / 2) / p[3]));
  conversion.apply(rgb);
  for (int i = 0; i < 3; ++i) p[i] = premultiply(rgb[i], p[3]);
}

SurfacePtr createSurface(cairo_format_t format, size_t width, size_t height) {
  return adoptSurface(cairo_image_surface_create(format, int(width), int(height)));
}

}  // namespace

SurfacePtr adoptSurface(cairo_surface_t* surface) {
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  return SurfacePtr(surface, cairo_surface_destroy);
}

SurfacePtr surfaceFromImage(const CGImage& image, const CGColorSpaceRef& space) {
  const std::optional<SpaceConversion> conversion = SpaceConversion::between(image.colorSpace(), space);
  SurfacePtr surface = createSurface(CAIRO_FORMAT_ARGB32, image.width(), image.height());
  if (!surface) return nullptr;
  uint8_t* data = cairo_image_surface_get_data(surface.get());
  const size_t stride = size_t(cairo_image_surface_get_stride(surface.get()));
  const size_t bytesPerPixel = CGPixelFormatBytesPerPixel(image.format());
  for (size_t y = 0; y < image.height(); ++y) {
    const uint8_t* in = image.row(y);
    auto* out = reinterpret_cast<uint32_t*>(data + y * stride);
    if (image.format() == CGPixelFormat::BGRA8Premultiplied && !conversion) {
      std::memcpy(out, in, image.width() * 4);
      continue;
    }
    for (size_t x = 0; x < image.width(); ++x) {
      uint8_t p[4] = {};
      readPixel(image.format(), in + x * bytesPerPixel, p);
      if (conversion) convertPremultiplied(*conversion, p);
      out[x] = uint32_t(p[3]) << 24 | uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

SurfacePtr coverageFromImage(const CGImage& image) {
  SurfacePtr surface = createSurface(CAIRO_FORMAT_A8, image.width(), image.height());
  if (!surface) return nullptr;
  uint8_t* data = cairo_image_surface_get_data(surface.get());
  const size_t stride = size_t(cairo_image_surface_get_stride(surface.get()));
  const size_t bytesPerPixel = CGPixelFormatBytesPerPixel(image.format());
  const bool hasAlpha = CGPixelFormatHasAlpha(image.format());
  for (size_t y = 0; y < image.height(); ++y) {
    for (size_t x = 0; x < image.width(); ++x) {
      uint8_t p[4] = {};
      readPixel(image.format(), image.row(y) + x * bytesPerPixel, p);
      data[y * stride + x] = hasAlpha ? p[3] : uint8_t(std::lround(0.3 * p[0] + 0.59 * p[1] + 0.11 * p[2]));
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

}  // namespace brenvia::graphics
