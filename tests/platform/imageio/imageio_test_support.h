#pragma once

// Shared helpers for the image file tests: synthetic pictures and pixel comparison.

#include "platform/imageio/image_io.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace brenvia::imageio::testing {

using test::LogCapture;

// A smooth picture: red follows x, green follows y, blue both, alpha a diagonal ramp. 16-bit
// components use the full range so a narrowing to 8 bits would show.
inline std::shared_ptr<CGImage> gradient(CGPixelFormat format, size_t w, size_t h, CGColorSpaceRef space) {
  auto image = CGImage::allocate(w, h, format, std::move(space));
  size_t comps = CGPixelFormatComponents(format);
  bool deep = CGPixelFormatBytesPerPixel(format) / comps == 2;
  for (size_t y = 0; y < h; ++y) {
    uint8_t* row = image->mutableRow(y);
    for (size_t x = 0; x < w; ++x) {
      double fx = double(x) / (w - 1), fy = double(y) / (h - 1);
      double v[4] = {fx, fy, 0.5 * (fx + fy), 0.25 + 0.75 * (1 - 0.5 * (fx + fy))};
      if (comps == 1) v[0] = 0.5 * (fx + fy);
      for (size_t c = 0; c < comps; ++c) {
        if (deep) {
          uint16_t s = uint16_t(v[c] * 65535 + 0.5);
          std::memcpy(row + (x * comps + c) * 2, &s, 2);
        } else {
          row[x * comps + c] = uint8_t(v[c] * 255 + 0.5);
        }
      }
    }
  }
  return image;
}

// Component c of pixel (x, y) as an integer, whatever the sample size.
inline int sample(const CGImage& image, size_t x, size_t y, size_t c) {
  size_t comps = CGPixelFormatComponents(image.format());
  const uint8_t* p = image.row(y);
  if (CGPixelFormatBytesPerPixel(image.format()) / comps == 2) {
    uint16_t v;
    std::memcpy(&v, p + (x * comps + c) * 2, 2);
    return v;
  }
  return p[x * comps + c];
}

// Largest per-component difference between two bitmaps of the same size and layout.
inline int maxDifference(const CGImage& a, const CGImage& b) {
  int worst = 0;
  size_t comps = CGPixelFormatComponents(a.format());
  for (size_t y = 0; y < a.height(); ++y)
    for (size_t x = 0; x < a.width(); ++x)
      for (size_t c = 0; c < comps; ++c) worst = std::max(worst, std::abs(sample(a, x, y, c) - sample(b, x, y, c)));
  return worst;
}

inline std::vector<uint8_t> encodeOrDie(const CGImage& image, bool png, const EncodeOptions& options = {}) {
  std::vector<uint8_t> bytes;
  bool ok = png ? encodePNG(image, options, bytes) : encodeJPEG(image, options, bytes);
  EXPECT_TRUE(ok);
  return bytes;
}

inline bool contains(const std::vector<uint8_t>& bytes, std::string_view needle) {
  auto same = [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); };
  return std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end(), same) != bytes.end();
}

using test::TempFolder;

}  // namespace brenvia::imageio::testing
