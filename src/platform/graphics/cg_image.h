#pragma once

#include "platform/graphics/color_space.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace brenvia {

// Pixel layouts a bitmap image can hold. 16-bit components are host-endian; float components
// are 32-bit. "Premultiplied" layouts store colour multiplied by alpha.
enum class CGPixelFormat {
  Gray8,
  RGB8,
  RGBA8,               // R,G,B,A bytes, straight alpha
  RGBA8Premultiplied,  // R,G,B,A bytes, premultiplied
  BGRA8Premultiplied,  // little-endian 32-bit ARGB words, premultiplied (Cairo's ARGB32)
  Gray16,
  RGB16,
  RGBA16,              // straight alpha
  RGBAFloatPremultiplied,
};

// Memory for pixels, or null when it cannot be had. Large blocks are backed by huge pages where
// the system offers them, which saves most of the page faults of a first write.
std::shared_ptr<uint8_t[]> CGPixelMemoryAllocate(size_t bytes, bool zeroed);

size_t CGPixelFormatBytesPerPixel(CGPixelFormat f);
size_t CGPixelFormatComponents(CGPixelFormat f);
bool CGPixelFormatHasAlpha(CGPixelFormat f);

// The rows of a bitmap that a producer (a decoder) is still writing, top row first. Readers of the
// bitmap wait for the rows they touch; a producer that stops early marks the bitmap failed and
// clears the rows it did not write, so nothing uninitialised is ever read.
class CGImageRowArrival {
 public:
  virtual ~CGImageRowArrival() = default;
  // Rows that may be read now; every row once the producer has stopped.
  size_t rowsReady() const { return ready_.load(std::memory_order_acquire); }
  // Blocks until at least `rows` rows are ready.
  virtual void waitForRows(size_t rows) const = 0;
  // True when the producer stopped before writing every row.
  virtual bool failed() const = 0;

 protected:
  std::atomic<size_t> ready_{0};
};

// An immutable bitmap: dimensions, layout, colour space and a shared byte buffer. The first row
// in memory is the top of the picture.
class CGImage {
 public:
  // Takes a buffer the caller filled; bytesPerRow must cover width pixels. Null on bad sizes.
  static std::shared_ptr<const CGImage> create(size_t width, size_t height, size_t bytesPerRow, CGPixelFormat format,
                                               CGColorSpaceRef colorSpace, std::shared_ptr<const uint8_t[]> data);
  // A zero-filled buffer the caller may write before sharing the image. Null when the size is not
  // representable or is beyond kMaxPixels.
  static std::shared_ptr<CGImage> allocate(size_t width, size_t height, CGPixelFormat format,
                                           CGColorSpaceRef colorSpace);

  size_t width() const { return width_; }
  size_t height() const { return height_; }
  size_t bytesPerRow() const { return bytesPerRow_; }
  CGPixelFormat format() const { return format_; }
  // Null for data images that carry no colour (depth, mattes).
  const CGColorSpaceRef& colorSpace() const { return colorSpace_; }
  // A bitmap whose rows are still arriving; the row producer stays alive with the image.
  static std::shared_ptr<const CGImage> createArriving(size_t width, size_t height, size_t bytesPerRow,
                                                       CGPixelFormat format, CGColorSpaceRef colorSpace,
                                                       std::shared_ptr<const uint8_t[]> data,
                                                       std::shared_ptr<const CGImageRowArrival> arrival);

  // Pixel access waits for rows that are still arriving.
  const uint8_t* data() const {
    waitForRows(height_);
    return data_.get();
  }
  const uint8_t* row(size_t y) const {
    waitForRows(y + 1);
    return data_.get() + y * bytesPerRow_;
  }
  // False when the rows' producer failed: the pixels past its failure are cleared, not decoded.
  bool complete() const {
    waitForRows(height_);
    return !arrival_ || !arrival_->failed();
  }
  uint8_t* mutableData() { return const_cast<uint8_t*>(data_.get()); }
  uint8_t* mutableRow(size_t y) { return mutableData() + y * bytesPerRow_; }

  // The largest bitmap we allocate: 2^28 pixels (16384 x 16384).
  static constexpr size_t kMaxPixels = size_t{1} << 28;

 private:
  CGImage() = default;
  static std::shared_ptr<CGImage> make(size_t width, size_t height, size_t bytesPerRow, CGPixelFormat format,
                                       CGColorSpaceRef colorSpace, std::shared_ptr<const uint8_t[]> data);
  size_t width_ = 0, height_ = 0, bytesPerRow_ = 0;
  CGPixelFormat format_ = CGPixelFormat::RGBA8;
  CGColorSpaceRef colorSpace_;
  std::shared_ptr<const uint8_t[]> data_;
  std::shared_ptr<const CGImageRowArrival> arrival_;

  void waitForRows(size_t rows) const {
    if (arrival_ && arrival_->rowsReady() < rows) arrival_->waitForRows(rows);
  }
};

using CGImageRef = std::shared_ptr<const CGImage>;

inline size_t CGImageGetWidth(const CGImageRef& i) { return i ? i->width() : 0; }
inline size_t CGImageGetHeight(const CGImageRef& i) { return i ? i->height() : 0; }
inline size_t CGImageGetBytesPerRow(const CGImageRef& i) { return i ? i->bytesPerRow() : 0; }
inline CGColorSpaceRef CGImageGetColorSpace(const CGImageRef& i) { return i ? i->colorSpace() : nullptr; }

}  // namespace brenvia
