#include "image/bitmap_context.h"

#include "image/graphics_utilities.h"
#include "image/image.h"

#include <cstdlib>

namespace brenvia {

BVBitmapContext::~BVBitmapContext() {
  _context.reset();
  std::free(_bytes);
}

std::shared_ptr<BVBitmapContext> BVBitmapContext::initWithBVImage(const BVImage& image) {
  return initWithCGImage(image.CGImage());
}

std::shared_ptr<BVBitmapContext> BVBitmapContext::initWithCGImage(const CGImageRef& image) {
  if (!image) return nullptr;
  const CGSize size = CGSizeMake(double(image->width()), double(image->height()));
  CGContextRef context = CGBitmapContextCreateWithSize(size);
  if (!context) return nullptr;
  CGContextDrawImage(context, CGRectMake(0, 0, size.width, size.height), image);
  auto result = std::make_shared<BVBitmapContext>();
  result->_context = std::move(context);
  return result;
}

std::shared_ptr<BVBitmapContext> BVBitmapContext::initWithBytes(void* bytes, size_t width, size_t height,
                                                                size_t bitsPerComponent, size_t bytesPerRow,
                                                                const CGColorSpaceRef& colorSpace,
                                                                CGBitmapInfo bitmapInfo) {
  auto result = std::make_shared<BVBitmapContext>();
  result->_bytes = bytes;
  result->_context = CGBitmapContextCreate(bytes, width, height, bitsPerComponent, bytesPerRow, colorSpace, bitmapInfo);
  return result->_context ? result : nullptr;
}

void* BVBitmapContext::bytes() const { return _bytes ? _bytes : CGBitmapContextGetData(_context); }

}  // namespace brenvia
