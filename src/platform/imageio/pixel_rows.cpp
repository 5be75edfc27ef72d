// Converts bitmap rows of any CGPixelFormat into the straight-alpha integer layouts the encoders take.

#include "platform/imageio/codec_internal.h"

#include <array>
#include <cstring>

namespace brenvia::imageio::detail {
namespace {

// kUnpremultiply[a * 256 + c] = round(c * 255 / a), clamped to 255 for malformed pixels (c > a).
const std::array<uint8_t, 65536>& unpremultiplyTable() {
  static const auto table = [] {
    std::array<uint8_t, 65536> t{};
    for (unsigned a = 1; a < 256; ++a)
      for (unsigned c = 0; c < 256; ++c) t[a * 256 + c] = static_cast<uint8_t>(std::min(255u, (c * 255 + a / 2) / a));
    return t;
  }();
  return table;
}

uint16_t load16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

float loadFloat(const uint8_t* p) {
  float v;
  std::memcpy(&v, p, 4);
  return v;
}

template <typename T>
constexpr uint32_t kMax = sizeof(T) == 1 ? 255 : 65535;

template <typename T>
T from8(uint8_t v) {
  return static_cast<T>(sizeof(T) == 1 ? v : v * 257);
}

template <typename T>
T from16(uint16_t v) {
  return static_cast<T>(sizeof(T) == 1 ? (v + 128u) / 257u : v);
}

// Clamps to 0..1 (NaN gives 0) and rounds to the output depth.
template <typename T>
T fromUnit(float v) {
  v = v > 0 ? (v < 1 ? v : 1) : 0;
  return static_cast<T>(v * kMax<T> + 0.5f);
}

template <typename T>
T unpremultiply8(uint8_t c, uint8_t a) {
  if constexpr (sizeof(T) == 1) {
    return unpremultiplyTable()[a * 256u + c];
  } else {
    if (a == 0) return 0;
    return static_cast<T>(std::min(65535u, (c * 65535u + a / 2u) / a));
  }
}

// Writes pixel i with N components: grey takes the red component; RGB drops alpha.
template <typename T, int N>
inline void put(T* out, size_t i, T r, T g, T b, T a) {
  T* o = out + i * N;
  o[0] = r;
  if constexpr (N >= 3) {
    o[1] = g;
    o[2] = b;
  }
  if constexpr (N == 4) o[3] = a;
}

template <typename T, int N>
void convert(const CGImage& image, size_t y, T* out) {
  const uint8_t* s = image.row(y);
  const size_t w = image.width();
  const T opaque = static_cast<T>(kMax<T>);
  switch (image.format()) {
    case CGPixelFormat::Gray8:
      for (size_t i = 0; i < w; ++i) {
        T v = from8<T>(s[i]);
        put<T, N>(out, i, v, v, v, opaque);
      }
      break;
    case CGPixelFormat::RGB8:
      for (size_t i = 0; i < w; ++i, s += 3) put<T, N>(out, i, from8<T>(s[0]), from8<T>(s[1]), from8<T>(s[2]), opaque);
      break;
    case CGPixelFormat::RGBA8:
      for (size_t i = 0; i < w; ++i, s += 4)
        put<T, N>(out, i, from8<T>(s[0]), from8<T>(s[1]), from8<T>(s[2]), from8<T>(s[3]));
      break;
    case CGPixelFormat::RGBA8Premultiplied:
      for (size_t i = 0; i < w; ++i, s += 4) {
        uint8_t a = s[3];
        put<T, N>(out, i, unpremultiply8<T>(s[0], a), unpremultiply8<T>(s[1], a), unpremultiply8<T>(s[2], a),
                  from8<T>(a));
      }
      break;
    case CGPixelFormat::BGRA8Premultiplied:  // little-endian ARGB words: bytes B, G, R, A
      for (size_t i = 0; i < w; ++i, s += 4) {
        uint8_t a = s[3];
        put<T, N>(out, i, unpremultiply8<T>(s[2], a), unpremultiply8<T>(s[1], a), unpremultiply8<T>(s[0], a),
                  from8<T>(a));
      }
      break;
    case CGPixelFormat::Gray16:
      for (size_t i = 0; i < w; ++i, s += 2) {
        T v = from16<T>(load16(s));
        put<T, N>(out, i, v, v, v, opaque);
      }
      break;
    case CGPixelFormat::RGB16:
      for (size_t i = 0; i < w; ++i, s += 6)
        put<T, N>(out, i, from16<T>(load16(s)), from16<T>(load16(s + 2)), from16<T>(load16(s + 4)), opaque);
      break;
    case CGPixelFormat::RGBA16:
      for (size_t i = 0; i < w; ++i, s += 8)
        put<T, N>(out, i, from16<T>(load16(s)), from16<T>(load16(s + 2)), from16<T>(load16(s + 4)),
                  from16<T>(load16(s + 6)));
      break;
    case CGPixelFormat::RGBAFloatPremultiplied:
      for (size_t i = 0; i < w; ++i, s += 16) {
        float a = loadFloat(s + 12);
        a = a > 0 ? (a < 1 ? a : 1) : 0;
        float k = a > 0 ? 1 / a : 0;
        put<T, N>(out, i, fromUnit<T>(loadFloat(s) * k), fromUnit<T>(loadFloat(s + 4) * k),
                  fromUnit<T>(loadFloat(s + 8) * k), fromUnit<T>(a));
      }
      break;
  }
}

}  // namespace

bool hasDeepSamples(CGPixelFormat f) {
  return f == CGPixelFormat::Gray16 || f == CGPixelFormat::RGB16 || f == CGPixelFormat::RGBA16 ||
         f == CGPixelFormat::RGBAFloatPremultiplied;
}

bool hasVisibleAlpha(const CGImage& image) {
  if (!CGPixelFormatHasAlpha(image.format())) return false;
  const size_t bpp = CGPixelFormatBytesPerPixel(image.format());
  for (size_t y = 0; y < image.height(); ++y) {
    const uint8_t* p = image.row(y);
    for (size_t x = 0; x < image.width(); ++x, p += bpp) {
      bool opaque = image.format() == CGPixelFormat::RGBA16                   ? load16(p + 6) == 65535
                    : image.format() == CGPixelFormat::RGBAFloatPremultiplied ? loadFloat(p + 12) >= 1
                                                                              : p[3] == 255;
      if (!opaque) return true;
    }
  }
  return false;
}

size_t rowLayoutBytesPerPixel(RowLayout layout) {
  switch (layout) {
    case RowLayout::Gray8: return 1;
    case RowLayout::Gray16: return 2;
    case RowLayout::RGB8: return 3;
    case RowLayout::RGB16: return 6;
    case RowLayout::RGBA8: return 4;
    case RowLayout::RGBA16: return 8;
  }
  return 4;
}

void convertRow(const CGImage& image, size_t y, RowLayout layout, uint8_t* out) {
  auto* out16 = reinterpret_cast<uint16_t*>(out);
  switch (layout) {
    case RowLayout::Gray8: convert<uint8_t, 1>(image, y, out); break;
    case RowLayout::RGB8: convert<uint8_t, 3>(image, y, out); break;
    case RowLayout::RGBA8: convert<uint8_t, 4>(image, y, out); break;
    case RowLayout::Gray16: convert<uint16_t, 1>(image, y, out16); break;
    case RowLayout::RGB16: convert<uint16_t, 3>(image, y, out16); break;
    case RowLayout::RGBA16: convert<uint16_t, 4>(image, y, out16); break;
  }
}

const uint8_t* rowIfAlready(const CGImage& image, size_t y, RowLayout layout) {
  CGPixelFormat same;
  switch (layout) {
    case RowLayout::Gray8: same = CGPixelFormat::Gray8; break;
    case RowLayout::Gray16: same = CGPixelFormat::Gray16; break;
    case RowLayout::RGB8: same = CGPixelFormat::RGB8; break;
    case RowLayout::RGB16: same = CGPixelFormat::RGB16; break;
    case RowLayout::RGBA8: same = CGPixelFormat::RGBA8; break;
    case RowLayout::RGBA16: same = CGPixelFormat::RGBA16; break;
    default: return nullptr;
  }
  if (image.format() == same) return image.row(y);
  // Opaque premultiplied pixels are their straight form.
  if (layout == RowLayout::RGBA8 && image.format() == CGPixelFormat::RGBA8Premultiplied) {
    const uint8_t* row = image.row(y);
    uint8_t alpha = 255;
    for (size_t i = 0; i < image.width(); ++i) alpha &= row[4 * i + 3];
    return alpha == 255 ? row : nullptr;
  }
  return nullptr;
}

}  // namespace brenvia::imageio::detail
