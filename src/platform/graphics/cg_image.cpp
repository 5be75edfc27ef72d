#include "platform/graphics/cg_image.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <limits>

namespace brenvia {

std::shared_ptr<uint8_t[]> CGPixelMemoryAllocate(size_t bytes, bool zeroed) {
  constexpr size_t kHugePage = size_t{2} << 20;
  if (bytes < 2 * kHugePage) {
    return std::shared_ptr<uint8_t[]>(zeroed ? new (std::nothrow) uint8_t[bytes]() : new (std::nothrow) uint8_t[bytes]);
  }
  size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  auto* block = static_cast<uint8_t*>(std::aligned_alloc(kHugePage, rounded));
  if (!block) return nullptr;
  madvise(block, rounded, MADV_HUGEPAGE);
  // Fresh huge pages come zeroed from the system; reused ones must be cleared.
  if (zeroed) std::memset(block, 0, bytes);
  return std::shared_ptr<uint8_t[]>(block, [](uint8_t* p) { std::free(p); });
}

size_t CGPixelFormatBytesPerPixel(CGPixelFormat f) {
  switch (f) {
    case CGPixelFormat::Gray8: return 1;
    case CGPixelFormat::RGB8: return 3;
    case CGPixelFormat::RGBA8:
    case CGPixelFormat::RGBA8Premultiplied:
    case CGPixelFormat::BGRA8Premultiplied: return 4;
    case CGPixelFormat::Gray16: return 2;
    case CGPixelFormat::RGB16: return 6;
    case CGPixelFormat::RGBA16: return 8;
    case CGPixelFormat::RGBAFloatPremultiplied: return 16;
  }
  return 4;
}

size_t CGPixelFormatComponents(CGPixelFormat f) {
  switch (f) {
    case CGPixelFormat::Gray8:
    case CGPixelFormat::Gray16: return 1;
    case CGPixelFormat::RGB8:
    case CGPixelFormat::RGB16: return 3;
    default: return 4;
  }
}

bool CGPixelFormatHasAlpha(CGPixelFormat f) { return CGPixelFormatComponents(f) == 4; }

namespace {

bool representable(size_t width, size_t height) {
  return width > 0 && height > 0 && width <= CGImage::kMaxPixels / height;
}

}  // namespace

std::shared_ptr<CGImage> CGImage::make(size_t width, size_t height, size_t bytesPerRow, CGPixelFormat format,
                                       CGColorSpaceRef colorSpace, std::shared_ptr<const uint8_t[]> data) {
  auto image = std::shared_ptr<CGImage>(new CGImage());
  image->width_ = width;
  image->height_ = height;
  image->bytesPerRow_ = bytesPerRow;
  image->format_ = format;
  image->colorSpace_ = std::move(colorSpace);
  image->data_ = std::move(data);
  return image;
}

std::shared_ptr<const CGImage> CGImage::create(size_t width, size_t height, size_t bytesPerRow, CGPixelFormat format,
                                               CGColorSpaceRef colorSpace, std::shared_ptr<const uint8_t[]> data) {
  if (!data || !representable(width, height) || bytesPerRow < width * CGPixelFormatBytesPerPixel(format)) return nullptr;
  return make(width, height, bytesPerRow, format, std::move(colorSpace), std::move(data));
}

std::shared_ptr<const CGImage> CGImage::createArriving(size_t width, size_t height, size_t bytesPerRow,
                                                       CGPixelFormat format, CGColorSpaceRef colorSpace,
                                                       std::shared_ptr<const uint8_t[]> data,
                                                       std::shared_ptr<const CGImageRowArrival> arrival) {
  auto image = create(width, height, bytesPerRow, format, std::move(colorSpace), std::move(data));
  if (image) std::const_pointer_cast<CGImage>(image)->arrival_ = std::move(arrival);
  return image;
}

std::shared_ptr<CGImage> CGImage::allocate(size_t width, size_t height, CGPixelFormat format,
                                           CGColorSpaceRef colorSpace) {
  if (!representable(width, height)) return nullptr;
  size_t bytesPerRow = (width * CGPixelFormatBytesPerPixel(format) + 15) & ~size_t{15};
  std::shared_ptr<uint8_t[]> data = CGPixelMemoryAllocate(bytesPerRow * height, true);
  if (!data) return nullptr;
  return make(width, height, bytesPerRow, format, std::move(colorSpace), std::move(data));
}

}  // namespace brenvia
