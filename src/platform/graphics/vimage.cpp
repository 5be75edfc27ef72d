#include "platform/graphics/vimage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cmath>
#include <optional>
#include <vector>

namespace brenvia {
namespace {

bool isEightBit32(const vImage_CGImageFormat& format) {
  return format.bitsPerComponent == 8 && format.bitsPerPixel == 32;
}

// The CGImage layout holding the same bytes as a bitmap info, after an in-place reorder that
// `reorder` applies; nothing for layouts an image cannot hold.
std::optional<CGPixelFormat> pixelFormatFor(CGBitmapInfo info, void (**reorder)(uint8_t*)) {
  *reorder = nullptr;
  const CGBitmapInfo alpha = info & kCGBitmapAlphaInfoMask, order = info & kCGBitmapByteOrderMask;
  const bool little = order == kCGBitmapByteOrder32Little;
  if (alpha == kCGImageAlphaPremultipliedFirst && little) return CGPixelFormat::BGRA8Premultiplied;
  if (alpha == kCGImageAlphaPremultipliedLast && !little) return CGPixelFormat::RGBA8Premultiplied;
  if (alpha == kCGImageAlphaPremultipliedFirst) {
    *reorder = [](uint8_t* p) { std::rotate(p, p + 1, p + 4); };  // A,R,G,B -> R,G,B,A
    return CGPixelFormat::RGBA8Premultiplied;
  }
  if (alpha == kCGImageAlphaNoneSkipLast && !little) {
    *reorder = [](uint8_t* p) { p[3] = 255; };
    return CGPixelFormat::RGBA8Premultiplied;
  }
  if (alpha == kCGImageAlphaNoneSkipFirst && little) {
    *reorder = [](uint8_t* p) { p[3] = 255; };
    return CGPixelFormat::BGRA8Premultiplied;
  }
  return std::nullopt;
}

constexpr uint32_t kMaxTentKernel = 8191;

const uint8_t* rowOf(const vImage_Buffer& buffer, size_t y) {
  return static_cast<const uint8_t*>(buffer.data) + y * buffer.rowBytes;
}
uint8_t* mutableRowOf(const vImage_Buffer& buffer, size_t y) {
  return static_cast<uint8_t*>(buffer.data) + y * buffer.rowBytes;
}

// The checks the convolutions share; kvImageNoError when they may run.
vImage_Error convolutionProblem(const vImage_Buffer& source, const vImage_Buffer& destination, size_t offsetX,
                                size_t offsetY, uint32_t kernelHeight, uint32_t kernelWidth, vImage_Flags flags) {
  if (!source.data || !destination.data) return kvImageNullPointerArgument;
  if (source.width != destination.width || source.height != destination.height) return kvImageBufferSizeMismatch;
  if (kernelHeight % 2 == 0 || kernelWidth % 2 == 0) return kvImageInvalidKernelSize;
  if (!(flags & kvImageEdgeExtend)) return kvImageInvalidEdgeStyle;
  if (offsetX != 0 || offsetY != 0) return kvImageInvalidParameter;
  return kvImageNoError;
}

// Tent sums along one line of n values read through `at` (edge-extended), r the tent radius:
// out[x] = Σ_{a,b ∈ [0, r]} in[x + a − b], which is Σ (r + 1 − |i|)·in[x + i]. Two running boxes of
// r + 1 values over prefix sums make each output cost the same whatever r.
template <class At>
void tentLine(size_t n, size_t r, At at, std::vector<uint64_t>& prefix, uint64_t* out) {
  const ptrdiff_t radius = ptrdiff_t(r), count = ptrdiff_t(n);
  // prefix[j] = Σ of in[-r ... j - r - 1], in being extended by r on both sides.
  prefix.assign(n + 2 * r + 1, 0);
  for (ptrdiff_t j = 0; j < count + 2 * radius; ++j) {
    prefix[size_t(j + 1)] = prefix[size_t(j)] + at(std::clamp<ptrdiff_t>(j - radius, 0, count - 1));
  }
  // Σ in[y .. y + r]
  auto box = [&](ptrdiff_t y) { return prefix[size_t(y + 2 * radius + 1)] - prefix[size_t(y + radius)]; };
  uint64_t running = 0;
  for (ptrdiff_t y = -radius; y <= 0; ++y) running += box(y);
  for (ptrdiff_t x = 0; x < count; ++x) {
    out[x] = running;
    if (x + 1 < count) running += box(x + 1) - box(x - radius);
  }
}

}  // namespace

CGBitmapInfo CGImageGetBitmapInfo(const CGImageRef& image) {
  if (!image) return 0;
  switch (image->format()) {
    case CGPixelFormat::BGRA8Premultiplied: return kCGBitmapByteOrder32Little | kCGImageAlphaPremultipliedFirst;
    case CGPixelFormat::Gray8:
    case CGPixelFormat::RGB8:
    case CGPixelFormat::Gray16:
    case CGPixelFormat::RGB16: return kCGBitmapByteOrder32Big | kCGImageAlphaNoneSkipLast;
    default: return kCGBitmapByteOrder32Big | kCGImageAlphaPremultipliedLast;
  }
}

vImage_Error vImageBuffer_InitWithCGImage(vImage_Buffer* buffer, const vImage_CGImageFormat& format,
                                          const double*, const CGImageRef& image, vImage_Flags) {
  if (!buffer || !image) return kvImageNullPointerArgument;
  if (!isEightBit32(format)) return kvImageInvalidParameter;
  const size_t rowBytes = image->width() * 4;
  void* data = std::calloc(image->height(), rowBytes);
  if (!data) return kvImageMemoryAllocationError;
  CGColorSpaceRef space = format.colorSpace ? format.colorSpace : CGColorSpaceCreateDeviceRGB();
  CGContextRef context =
      CGBitmapContextCreate(data, image->width(), image->height(), 8, rowBytes, space, format.bitmapInfo);
  if (!context) {
    std::free(data);
    return kvImageInvalidParameter;
  }
  CGContextSetBlendMode(context, kCGBlendModeCopy);
  CGContextDrawImage(context, CGRectMake(0, 0, double(image->width()), double(image->height())), image);
  *buffer = {data, image->height(), image->width(), rowBytes};
  return kvImageNoError;
}

CGImageRef vImageCreateCGImageFromBuffer(const vImage_Buffer& buffer, const vImage_CGImageFormat& format,
                                         vImage_Flags flags, vImage_Error* error) {
  auto fail = [&](vImage_Error code) -> CGImageRef {
    if (error) *error = code;
    return nullptr;
  };
  if (!buffer.data) return fail(kvImageNullPointerArgument);
  void (*reorder)(uint8_t*) = nullptr;
  std::optional<CGPixelFormat> pixelFormat = pixelFormatFor(format.bitmapInfo, &reorder);
  if (!isEightBit32(format) || !pixelFormat || buffer.rowBytes < buffer.width * 4 || buffer.width == 0 ||
      buffer.height == 0 || buffer.width > CGImage::kMaxPixels / buffer.height) {
    return fail(kvImageInvalidParameter);
  }
  const size_t size = buffer.rowBytes * buffer.height;
  uint8_t* bytes = static_cast<uint8_t*>(buffer.data);
  if (!(flags & kvImageNoAllocate)) {
    bytes = static_cast<uint8_t*>(std::malloc(size));
    if (!bytes) return fail(kvImageMemoryAllocationError);
    std::memcpy(bytes, buffer.data, size);
  }
  std::shared_ptr<const uint8_t[]> owned(bytes, [](const uint8_t* p) { std::free(const_cast<uint8_t*>(p)); });
  if (reorder) {
    for (size_t y = 0; y < buffer.height; ++y)
      for (size_t x = 0; x < buffer.width; ++x) reorder(bytes + y * buffer.rowBytes + x * 4);
  }
  CGColorSpaceRef space = format.colorSpace ? format.colorSpace : CGColorSpaceCreateDeviceRGB();
  CGImageRef image = CGImage::create(buffer.width, buffer.height, buffer.rowBytes, *pixelFormat, space, owned);
  if (!image) return fail(kvImageInvalidParameter);
  if (error) *error = kvImageNoError;
  return image;
}

vImage_Error vImageTableLookUp_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination,
                                        const Pixel_8* alphaTable, const Pixel_8* redTable,
                                        const Pixel_8* greenTable, const Pixel_8* blueTable, vImage_Flags) {
  if (!source.data || !destination.data) return kvImageNullPointerArgument;
  if (source.width != destination.width || source.height != destination.height) return kvImageBufferSizeMismatch;
  const Pixel_8* tables[4] = {alphaTable, redTable, greenTable, blueTable};
  for (size_t y = 0; y < source.height; ++y) {
    const uint8_t* in = static_cast<const uint8_t*>(source.data) + y * source.rowBytes;
    uint8_t* out = static_cast<uint8_t*>(destination.data) + y * destination.rowBytes;
    for (size_t i = 0; i < source.width * 4; ++i) {
      const Pixel_8* table = tables[i & 3];
      out[i] = table ? table[in[i]] : in[i];
    }
  }
  return kvImageNoError;
}

vImage_Error vImageTentConvolve_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination, void*,
                                         size_t offsetX, size_t offsetY, uint32_t kernelHeight, uint32_t kernelWidth,
                                         const uint8_t*, vImage_Flags flags) {
  if (vImage_Error problem =
          convolutionProblem(source, destination, offsetX, offsetY, kernelHeight, kernelWidth, flags)) {
    return problem;
  }
  // Larger kernels would overflow the 32-bit row sums.
  if (kernelWidth > kMaxTentKernel || kernelHeight > kMaxTentKernel) return kvImageInvalidKernelSize;
  const size_t values = source.width * 4;
  const ptrdiff_t height = ptrdiff_t(source.height), r = kernelHeight / 2;
  const size_t rx = kernelWidth / 2;
  const uint64_t divisor = uint64_t(rx + 1) * (rx + 1) * uint64_t(r + 1) * uint64_t(r + 1);

  // Horizontal tent sums of the rows y − r − 1 ... y + r + 2 around the output row y, in a ring.
  const ptrdiff_t ringRows = 2 * r + 3;
  std::vector<uint32_t> ring(size_t(ringRows) * values);
  std::vector<uint64_t> prefix, line(source.width);
  ptrdiff_t ready = -r - 2;  // the last virtual row in the ring
  auto rowSums = [&](ptrdiff_t y) -> const uint32_t* {
    uint32_t* slot = ring.data() + size_t(((y % ringRows) + ringRows) % ringRows) * values;
    for (; ready < y; ++ready) {
      uint32_t* next = ring.data() + size_t((((ready + 1) % ringRows) + ringRows) % ringRows) * values;
      const uint8_t* in = rowOf(source, size_t(std::clamp<ptrdiff_t>(ready + 1, 0, height - 1)));
      for (size_t c = 0; c < 4; ++c) {
        tentLine(source.width, rx, [&](ptrdiff_t x) { return uint64_t(in[size_t(x) * 4 + c]); }, prefix, line.data());
        for (size_t x = 0; x < source.width; ++x) next[x * 4 + c] = uint32_t(line[x]);
      }
    }
    return slot;
  };

  // Vertically, T(y + 1) = T(y) + up(y) − down(y), up and down being boxes of r + 1 rows after
  // and up to y; each moves on by one row per output row.
  std::vector<int64_t> tent(values, 0), up(values, 0), down(values, 0);
  for (ptrdiff_t i = -r; i <= r + 1; ++i) {
    const uint32_t* h = rowSums(i);
    for (size_t v = 0; v < values; ++v) {
      if (i <= r) tent[v] += int64_t(r + 1 - std::abs(i)) * h[v];
      (i > 0 ? up : down)[v] += h[v];
    }
  }
  for (ptrdiff_t y = 0; y < height; ++y) {
    uint8_t* out = mutableRowOf(destination, size_t(y));
    for (size_t v = 0; v < values; ++v) out[v] = uint8_t((uint64_t(tent[v]) + divisor / 2) / divisor);
    const uint32_t *enter = rowSums(y + r + 2), *middle = rowSums(y + 1), *leave = rowSums(y - r);
    for (size_t v = 0; v < values; ++v) {
      tent[v] += up[v] - down[v];
      up[v] += int64_t(enter[v]) - middle[v];
      down[v] += int64_t(middle[v]) - leave[v];
    }
  }
  return kvImageNoError;
}

vImage_Error vImageConvolveWithBias_ARGB8888(const vImage_Buffer& source, const vImage_Buffer& destination, void*,
                                             size_t offsetX, size_t offsetY, const int16_t* kernel,
                                             uint32_t kernelHeight, uint32_t kernelWidth, int32_t divisor,
                                             int32_t bias, const uint8_t*, vImage_Flags flags) {
  if (vImage_Error problem =
          convolutionProblem(source, destination, offsetX, offsetY, kernelHeight, kernelWidth, flags)) {
    return problem;
  }
  if (!kernel) return kvImageNullPointerArgument;
  if (source.data == destination.data) return kvImageInvalidParameter;  // every output reads its neighbours
  const ptrdiff_t width = ptrdiff_t(source.width), height = ptrdiff_t(source.height);
  const ptrdiff_t kh = kernelHeight, kw = kernelWidth;
  const double scale = 1.0 / (divisor == 0 ? 1 : divisor);
  const size_t firstChannel = (flags & kvImageLeaveAlphaUnchanged) ? 1 : 0;
  for (ptrdiff_t y = 0; y < height; ++y) {
    uint8_t* out = mutableRowOf(destination, size_t(y));
    for (ptrdiff_t x = 0; x < width; ++x) {
      if (firstChannel) out[x * 4] = rowOf(source, size_t(y))[x * 4];
      for (size_t c = firstChannel; c < 4; ++c) {
        int64_t sum = 0;
        for (ptrdiff_t i = 0; i < kh; ++i) {
          const uint8_t* in = rowOf(source, size_t(std::clamp<ptrdiff_t>(y + i - kh / 2, 0, height - 1)));
          for (ptrdiff_t j = 0; j < kw; ++j) {
            const ptrdiff_t column = std::clamp<ptrdiff_t>(x + j - kw / 2, 0, width - 1);
            sum += kernel[i * kw + j] * int64_t(in[column * 4 + ptrdiff_t(c)]);
          }
        }
        out[x * 4 + ptrdiff_t(c)] = uint8_t(std::clamp<long>(std::lround(double(sum + bias) * scale), 0, 255));
      }
    }
  }
  return kvImageNoError;
}

}  // namespace brenvia
