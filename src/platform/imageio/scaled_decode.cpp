// Smaller decodes for callers that ask for a maximum size: the shared reduction rule, and the
// block average that formats without a scaled decode of their own are reduced with.

#include "platform/imageio/codec_internal.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace brenvia::imageio::detail {
namespace {

bool hasStraightAlpha(CGPixelFormat f) { return f == CGPixelFormat::RGBA8 || f == CGPixelFormat::RGBA16; }

// The rounded quotient for integer samples, the plain one for floats; 0 for an empty divisor.
template <class Sum>
Sum mean(Sum sum, Sum divisor) {
  if (divisor == 0) return 0;
  if constexpr (std::is_floating_point_v<Sum>) return sum / divisor;
  return (sum + divisor / 2) / divisor;
}

// Sums each block of `d` rows and columns of N-component pixels, then writes the means. With
// straight alpha the last component weighs the others, so transparent pixels lend no colour.
template <class T, class Sum, size_t N, bool Weighted>
void averageBlocks(const CGImage& in, size_t d, PixelBuffer& out) {
  std::vector<Sum> sums(out.width * N);
  for (size_t oy = 0; oy < out.height; ++oy) {
    std::fill(sums.begin(), sums.end(), Sum(0));
    const size_t firstRow = oy * d, rows = std::min(d, in.height() - firstRow);
    for (size_t y = firstRow; y < firstRow + rows; ++y) {
      const T* pixel = reinterpret_cast<const T*>(in.row(y));
      Sum* sum = sums.data();
      for (size_t x = 0; x < in.width(); x += d, sum += N) {
        for (const T* end = pixel + std::min(d, in.width() - x) * N; pixel < end; pixel += N) {
          const Sum weight = Weighted ? Sum(pixel[N - 1]) : Sum(1);
          for (size_t c = 0; c + 1 < N; ++c) sum[c] += Sum(pixel[c]) * weight;
          sum[N - 1] += Sum(pixel[N - 1]);
        }
      }
    }
    T* target = reinterpret_cast<T*>(out.row(oy));
    for (size_t ox = 0; ox < out.width; ++ox, target += N) {
      const Sum count = Sum(rows * std::min(d, in.width() - ox * d));
      const Sum* sum = &sums[ox * N];
      for (size_t c = 0; c + 1 < N; ++c) target[c] = T(mean(sum[c], Weighted ? sum[N - 1] : count));
      target[N - 1] = T(mean(sum[N - 1], count));
    }
  }
}

// Integer samples sum exactly in 64 bits: a block of 8 x 8 weighted 16-bit samples stays below 2^39.
template <class T>
void averageBlocksOf(const CGImage& in, size_t d, PixelBuffer& out) {
  using Sum = std::conditional_t<std::is_floating_point_v<T>, double, uint64_t>;
  const bool weighted = hasStraightAlpha(in.format());
  switch (CGPixelFormatComponents(in.format())) {
    case 1: return averageBlocks<T, Sum, 1, false>(in, d, out);
    case 3: return averageBlocks<T, Sum, 3, false>(in, d, out);
    default:
      return weighted ? averageBlocks<T, Sum, 4, true>(in, d, out) : averageBlocks<T, Sum, 4, false>(in, d, out);
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
    case CGPixelFormat::RGBA16: averageBlocksOf<uint16_t>(image, d, out); break;
    case CGPixelFormat::RGBAFloatPremultiplied: averageBlocksOf<float>(image, d, out); break;
    default: averageBlocksOf<uint8_t>(image, d, out); break;
  }
  return out.finish(image.colorSpace());
}

}  // namespace brenvia::imageio::detail
