#pragma once

#include "platform/coreimage/ci_context.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace brenvia::test {

// An 8-bit RGBA (straight alpha) sRGB bitmap filled by fn(x, y) -> {r, g, b, a}, top row first.
template <class F>
CGImageRef makeBitmap(size_t w, size_t h, F fn, CGPixelFormat format = CGPixelFormat::RGBA8) {
  auto image = CGImage::allocate(w, h, format, CGColorSpaceCreateDeviceRGB());
  for (size_t y = 0; y < h; ++y) {
    uint8_t* row = image->mutableRow(y);
    for (size_t x = 0; x < w; ++x) {
      std::array<uint8_t, 4> p = fn(x, y);
      for (size_t c = 0; c < CGPixelFormatBytesPerPixel(format); ++c) row[x * CGPixelFormatBytesPerPixel(format) + c] = p[c];
    }
  }
  return image;
}

inline CGImageRef noiseBitmap(size_t w, size_t h, unsigned seed = 1) {
  std::mt19937 rng(seed);
  return makeBitmap(w, h, [&](size_t, size_t) {
    return std::array<uint8_t, 4>{uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), uint8_t(rng() | 0x80)};
  });
}

inline CGImageRef solidBitmap(size_t w, size_t h, std::array<uint8_t, 4> p) {
  return makeBitmap(w, h, [&](size_t, size_t) { return p; });
}

// Pixel (x, y) of a rendered RGBA8 bitmap, y counted from the top.
inline std::array<int, 4> pixelAt(const CGImageRef& image, size_t x, size_t y) {
  const uint8_t* p = image->row(y) + x * 4;
  return {p[0], p[1], p[2], p[3]};
}

// Red, green and blue of pixel (x, y) of an 8-bit bitmap, y counted from the top, whatever its
// layout: RGB, RGBA, or the drawing road's BGRA.
inline std::array<int, 3> rgbAt(const CGImage& image, size_t x, size_t y) {
  const uint8_t* p = image.row(y) + x * CGPixelFormatBytesPerPixel(image.format());
  if (image.format() == CGPixelFormat::BGRA8Premultiplied) return {p[2], p[1], p[0]};
  return {p[0], p[1], p[2]};
}

// The largest difference of a colour channel between two 8-bit bitmaps of the same size.
inline int largestColourDifference(const CGImage& a, const CGImage& b) {
  int worst = 0;
  for (size_t y = 0; y < a.height(); ++y)
    for (size_t x = 0; x < a.width(); ++x)
      for (size_t c = 0; c < 3; ++c) worst = std::max(worst, std::abs(rgbAt(a, x, y)[c] - rgbAt(b, x, y)[c]));
  return worst;
}

// Renders the extent (or rect) to premultiplied float RGBA, top row first.
inline std::vector<float> renderFloat(const CIImageRef& image, const CGRect& rect, const CIContextOptions& options = {}) {
  auto context = CIContext::contextWithOptions(options);
  std::vector<float> out(size_t(rect.size.width * rect.size.height * 4));
  context->render(image, out.data(), size_t(rect.size.width) * 16, rect, kCIFormatRGBAf, nullptr);
  return out;
}

inline CIContextOptions unmanaged() {
  CIContextOptions o;
  o.workingColorSpace = CGColorSpaceRef();
  return o;
}

// Collects log lines while alive.
class LogCapture {
 public:
  LogCapture() { previous_ = BVSetLogHandler([this](std::string_view l) { lines.emplace_back(l); }); }
  ~LogCapture() { BVSetLogHandler(previous_); }
  std::vector<std::string> lines;

 private:
  BVLogHandler previous_;
};

// A scratch folder removed with its contents at the end of the test.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "brenvia-test-XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data()) ? pattern : "";
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  }
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder_)) names.push_back(e.path().filename().string());
    return names;
  }
  void write(const std::string& name, const std::vector<uint8_t>& bytes) const {
    std::ofstream(path(name), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }

 private:
  std::string folder_;
};

}  // namespace brenvia::test
