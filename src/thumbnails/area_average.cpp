#include "thumbnails/area_average.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace brenvia {
namespace {

// Where source pixel j of a line lands in the shorter line: output `first` takes `share` of it
// and output first + 1 the rest. Each output spans at least one source pixel, so two suffice.
struct Footprint {
  size_t first;
  float share;
};

std::vector<Footprint> footprints(size_t from, size_t to) {
  std::vector<Footprint> line(from);
  for (size_t j = 0; j < from; ++j) {
    const size_t first = j * to / from;
    // Output `first` ends at (first + 1)·from/to in source units; in units of 1/to that is exact.
    const size_t room = (first + 1) * from - j * to;
    line[j] = {first, room >= to ? 1.0f : float(room) / float(to)};
  }
  return line;
}

uint16_t load16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

// Row y as premultiplied R, G, B, A floats from 0 to 255.
void loadPremultipliedRow(const CGImage& image, size_t y, float* out) {
  const uint8_t* s = image.row(y);
  const size_t w = image.width();
  auto put = [&out](float r, float g, float b, float a) {
    out[0] = r, out[1] = g, out[2] = b, out[3] = a;
    out += 4;
  };
  constexpr float k16 = 1.0f / 257.0f;
  switch (image.format()) {
    case CGPixelFormat::Gray8:
      for (size_t i = 0; i < w; ++i) put(s[i], s[i], s[i], 255);
      break;
    case CGPixelFormat::RGB8:
      for (size_t i = 0; i < w; ++i, s += 3) put(s[0], s[1], s[2], 255);
      break;
    case CGPixelFormat::RGBA8:
      for (size_t i = 0; i < w; ++i, s += 4) {
        const float a = s[3] / 255.0f;
        put(s[0] * a, s[1] * a, s[2] * a, s[3]);
      }
      break;
    case CGPixelFormat::RGBA8Premultiplied:
      for (size_t i = 0; i < w; ++i, s += 4) put(s[0], s[1], s[2], s[3]);
      break;
    case CGPixelFormat::BGRA8Premultiplied:
      for (size_t i = 0; i < w; ++i, s += 4) put(s[2], s[1], s[0], s[3]);
      break;
    case CGPixelFormat::Gray16:
      for (size_t i = 0; i < w; ++i, s += 2) {
        const float v = load16(s) * k16;
        put(v, v, v, 255);
      }
      break;
    case CGPixelFormat::RGB16:
      for (size_t i = 0; i < w; ++i, s += 6) put(load16(s) * k16, load16(s + 2) * k16, load16(s + 4) * k16, 255);
      break;
    case CGPixelFormat::RGBA16:
      for (size_t i = 0; i < w; ++i, s += 8) {
        const float a = load16(s + 6) / 65535.0f;
        put(load16(s) * k16 * a, load16(s + 2) * k16 * a, load16(s + 4) * k16 * a, load16(s + 6) * k16);
      }
      break;
    case CGPixelFormat::RGBAFloatPremultiplied:
      for (size_t i = 0; i < w; ++i, s += 16) {
        float p[4];
        std::memcpy(p, s, sizeof p);
        put(p[0] * 255, p[1] * 255, p[2] * 255, p[3] * 255);
      }
      break;
  }
}

// Adds `weight` times the source line to the output line, each pixel split by its footprint.
void addLine(const float* source, const std::vector<Footprint>& across, float weight, float* out) {
  for (const Footprint& f : across) {
    const float a = f.share * weight, b = weight - a;
    float* to = out + 4 * f.first;
    for (int c = 0; c < 4; ++c) to[c] += a * source[c];
    if (b > 0) {
      for (int c = 0; c < 4; ++c) to[4 + c] += b * source[c];
    }
    source += 4;
  }
}

}  // namespace

CGImageRef BVCreateAreaAveragedImage(const CGImageRef& image, size_t width, size_t height) {
  if (!image || width == 0 || height == 0 || width > image->width() || height > image->height()) return nullptr;
  const std::vector<Footprint> across = footprints(image->width(), width);
  const std::vector<Footprint> down = footprints(image->height(), height);
  std::vector<float> sums(width * height * 4, 0.0f), row(image->width() * 4);
  for (size_t y = 0; y < image->height(); ++y) {
    loadPremultipliedRow(*image, y, row.data());
    const Footprint f = down[y];
    float* target = sums.data() + f.first * width * 4;
    addLine(row.data(), across, f.share, target);
    if (f.share < 1.0f) addLine(row.data(), across, 1.0f - f.share, target + width * 4);
  }
  auto result = CGImage::allocate(width, height, CGPixelFormat::RGBA8Premultiplied, image->colorSpace());
  if (!result) return nullptr;
  const float scale = float(width * height) / float(image->width() * image->height());
  for (size_t y = 0; y < height; ++y) {
    uint8_t* out = result->mutableRow(y);
    const float* in = sums.data() + y * width * 4;
    for (size_t i = 0; i < width * 4; ++i) out[i] = uint8_t(std::clamp(in[i] * scale + 0.5f, 0.0f, 255.0f));
  }
  return result;
}

}  // namespace brenvia
