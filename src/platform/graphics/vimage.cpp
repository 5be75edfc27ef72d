#include "platform/graphics/vimage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

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

}  // namespace brenvia
