#pragma once

#include "platform/graphics/cg_context.h"
#include "platform/graphics/cg_image.h"

#include <cstdint>
#include <memory>

namespace brenvia {

class BVImage;

// A bitmap context that owns its memory: the target a filter draws on when a run goes through
// the drawing API instead of the image engine.
class BVBitmapContext {
 public:
  BVBitmapContext() = default;
  ~BVBitmapContext();
  BVBitmapContext(const BVBitmapContext&) = delete;
  BVBitmapContext& operator=(const BVBitmapContext&) = delete;

  // A context of the picture's pixel size with the picture drawn at the origin; null without a
  // bitmap or when no context can be made.
  static std::shared_ptr<BVBitmapContext> initWithBVImage(const BVImage& image);
  static std::shared_ptr<BVBitmapContext> initWithCGImage(const CGImageRef& image);
  // Takes over `bytes` (from malloc; freed with the object, also when no context can be made).
  static std::shared_ptr<BVBitmapContext> initWithBytes(void* bytes, size_t width, size_t height,
                                                        size_t bitsPerComponent, size_t bytesPerRow,
                                                        const CGColorSpaceRef& colorSpace, CGBitmapInfo bitmapInfo);

  // The memory handed over, else the context's own pixels.
  void* bytes() const;
  // The object frees the pointer it holds when it goes.
  void setBytes(void* bytes) { _bytes = bytes; }
  const CGContextRef& context() const { return _context; }
  void setContext(CGContextRef context) { _context = std::move(context); }

 private:
  CGContextRef _context;
  void* _bytes = nullptr;
};

}  // namespace brenvia
