#include "platform/graphics/vimage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

namespace brenvia {
namespace {

struct Pixels {
  size_t width, height;
  std::vector<uint8_t> bytes;
  vImage_Buffer buffer() { return {bytes.data(), height, width, width * 4}; }
  uint8_t at(ptrdiff_t x, ptrdiff_t y, size_t c) const {
    x = std::clamp<ptrdiff_t>(x, 0, ptrdiff_t(width) - 1), y = std::clamp<ptrdiff_t>(y, 0, ptrdiff_t(height) - 1);
    return bytes[(size_t(y) * width + size_t(x)) * 4 + c];
  }
};

Pixels noise(size_t width, size_t height, unsigned seed) {
  std::mt19937 rng(seed);
  Pixels p{width, height, std::vector<uint8_t>(width * height * 4)};
  for (auto& b : p.bytes) b = uint8_t(rng());
  return p;
}

// The tent filter by its weights, pixel by pixel.
uint8_t tentAt(const Pixels& p, ptrdiff_t x, ptrdiff_t y, size_t c, ptrdiff_t rx, ptrdiff_t ry) {
  uint64_t sum = 0;
  for (ptrdiff_t j = -ry; j <= ry; ++j)
    for (ptrdiff_t i = -rx; i <= rx; ++i) {
      sum += uint64_t((rx + 1 - std::abs(i)) * (ry + 1 - std::abs(j))) * p.at(x + i, y + j, c);
    }
  const uint64_t divisor = uint64_t((rx + 1) * (rx + 1) * (ry + 1) * (ry + 1));
  return uint8_t((sum + divisor / 2) / divisor);
}

TEST(vImage, TentConvolutionMatchesItsWeights) {
  for (auto [w, h, kw, kh] : {std::array<uint32_t, 4>{7, 5, 3, 3}, {6, 9, 1, 5}, {3, 4, 9, 11}, {12, 2, 5, 1}}) {
    Pixels source = noise(w, h, w * 31 + kh), out{w, h, std::vector<uint8_t>(w * h * 4)};
    ASSERT_EQ(vImageTentConvolve_ARGB8888(source.buffer(), out.buffer(), nullptr, 0, 0, kh, kw, nullptr,
                                          kvImageEdgeExtend),
              kvImageNoError);
    for (size_t y = 0; y < h; ++y)
      for (size_t x = 0; x < w; ++x)
        for (size_t c = 0; c < 4; ++c)
          ASSERT_EQ(out.at(x, y, c), tentAt(source, x, y, c, kw / 2, kh / 2)) << w << "x" << h << " k " << kw << "x" << kh;
  }
  Pixels p = noise(4, 4, 1);
  EXPECT_EQ(vImageTentConvolve_ARGB8888(p.buffer(), p.buffer(), nullptr, 0, 0, 4, 3, nullptr, kvImageEdgeExtend),
            kvImageInvalidKernelSize);
  EXPECT_EQ(vImageTentConvolve_ARGB8888(p.buffer(), p.buffer(), nullptr, 0, 0, 3, 3, nullptr, 0), kvImageInvalidEdgeStyle);
}

TEST(vImage, ConvolutionWithBiasRoundsClampsAndCanKeepAlpha) {
  // One row: bytes 0 (alpha) and 1 vary, the kernel takes the centre twice minus both neighbours.
  Pixels source{3, 1, {10, 10, 0, 0, 20, 40, 0, 0, 30, 100, 0, 0}}, out{3, 1, std::vector<uint8_t>(12)};
  const int16_t kernel[] = {-1, 2, -1};
  ASSERT_EQ(vImageConvolveWithBias_ARGB8888(source.buffer(), out.buffer(), nullptr, 0, 0, kernel, 1, 3, 2, 51, nullptr,
                                            kvImageEdgeExtend | kvImageLeaveAlphaUnchanged),
            kvImageNoError);
  // (2·10 − 10 − 40 + 51) / 2 = 10.5 → 11; (80 − 10 − 100 + 51) / 2 = 10.5 → 11;
  // (200 − 40 − 100 + 51) / 2 = 55.5 → 56; the zero bytes give 51 / 2 → 26.
  EXPECT_EQ(out.bytes, (std::vector<uint8_t>{10, 11, 26, 26, 20, 11, 26, 26, 30, 56, 26, 26}));
  const int16_t steep[] = {0, 20, 0};
  ASSERT_EQ(vImageConvolveWithBias_ARGB8888(source.buffer(), out.buffer(), nullptr, 0, 0, steep, 1, 3, 0, 0, nullptr,
                                            kvImageEdgeExtend),
            kvImageNoError);
  EXPECT_EQ(out.bytes[0], 200);
  EXPECT_EQ(out.bytes[5], 255);
}

}  // namespace
}  // namespace brenvia
