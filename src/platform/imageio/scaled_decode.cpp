// Smaller decodes for callers that ask for a maximum size: the shared reduction rule, and the
// block average that formats without a scaled decode of their own are reduced with.

#include "platform/imageio/codec_internal.h"

#include <algorithm>
#include <cmath>

namespace brenvia::imageio::detail {
namespace {

bool hasStraightAlpha(CGPixelFormat f) { return f == CGPixelFormat::RGBA8 || f == CGPixelFormat::RGBA16; }

template <class T>
T fromMean(double v) {
  if constexpr (std::is_floating_point_v<T>) return T(v);
  return T(std::lround(v));
}

// Sums each block of `d` rows and columns, then writes the means. With straight alpha the last
// component is the weight of the others, so transparent pixels lend no colour.
template <class T>
void averageBlocks(const CGImage& in, unsigned d, PixelBuffer& out) {
  const size_t n = CGPixelFormatComponents(in.format());
  const bool weighted = hasStraightAlpha(in.format());
  std::vector<double> sums(out.width * n);
  for (size_t oy = 0; oy < out.height; ++oy) {
    std::fill(sums.begin(), sums.end(), 0.0);
    const size_t firstRow = oy * d, rows = std::min<size_t>(d, in.height() - firstRow);
    for (size_t y = firstRow; y < firstRow + rows; ++y) {
      const T* row = reinterpret_cast<const T*>(in.row(y));
      for (size_t x = 0; x < in.width(); ++x) {
        double* sum = &sums[x / d * n];
        const T* pixel = row + x * n;
        const double weight = weighted ? double(pixel[n - 1]) : 1.0;
        for (size_t c = 0; c + 1 < n; ++c) sum[c] += double(pixel[c]) * weight;
        sum[n - 1] += double(pixel[n - 1]);
      }
    }
    T* target = reinterpret_cast<T*>(out.row(oy));
    for (size_t ox = 0; ox < out.width; ++ox) {
      const double count = double(rows * std::min<size_t>(d, in.width() - ox * d));
      const double* sum = &sums[ox * n];
      const double colourDivisor = weighted ? sum[n - 1] : count;
      for (size_t c = 0; c + 1 < n; ++c) target[ox * n + c] = fromMean<T>(colourDivisor > 0 ? sum[c] / colourDivisor : 0);
      target[ox * n + n - 1] = fromMean<T>(sum[n - 1] / count);
    }
  }
}

}  // namespace

unsigned scaleDenominator(size_t width, size_t height, size_t target) {
  if (target == 0) return 1;
  const size_t longer = std::max(width, height);
  for (unsigned d : {8u, 4u, 2u})
    if ((longer + d - 1) / d >= target) return d;
  return 1;
}

CGImageRef reduceByAveraging(const CGImage& image, unsigned denominator) {
  PixelBuffer out;
  const size_t d = std::max(1u, denominator);
  if (!out.allocate((image.width() + d - 1) / d, (image.height() + d - 1) / d, image.format())) return nullptr;
  switch (image.format()) {
    case CGPixelFormat::Gray16:
    case CGPixelFormat::RGB16:
    case CGPixelFormat::RGBA16: averageBlocks<uint16_t>(image, unsigned(d), out); break;
    case CGPixelFormat::RGBAFloatPremultiplied: averageBlocks<float>(image, unsigned(d), out); break;
    default: averageBlocks<uint8_t>(image, unsigned(d), out); break;
  }
  return out.finish(image.colorSpace());
}

}  // namespace brenvia::imageio::detail
