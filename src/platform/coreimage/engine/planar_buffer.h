#pragma once

#include "platform/coreimage/engine/pixel_rect.h"
#include "platform/coreimage/engine/span.h"

#include <cstddef>
#include <memory>

namespace brenvia::ci {

// Premultiplied RGBA float pixels covering `rect`, one plane per channel. Row k of a plane
// holds plane row rect.y + k (bottom row first, as the plane's y points up).
struct PlanarView {
  PixelRect rect;
  float* plane[4] = {};
  size_t stride = 0;  // floats per row

  float* row(int c, int64_t y) const { return plane[c] + size_t(y - rect.y) * stride; }
  float at(int c, int64_t x, int64_t y) const { return row(c, y)[x - rect.x]; }

  // Copies pixels [s.x, s.x + s.n) of row s.y into the span; pixels outside rect read as 0.
  void read(Span& s) const;
  // Writes the span into the buffer (the span must lie inside rect).
  void write(const Span& s) const;
};

// An owned planar buffer.
class PlanarBuffer {
 public:
  PlanarBuffer() = default;
  explicit PlanarBuffer(const PixelRect& rect) { reset(rect); }
  // Reallocates only when the new rect needs more memory than the buffer holds.
  void reset(const PixelRect& rect);
  const PlanarView& view() const { return view_; }
  size_t capacity() const { return capacity_; }

 private:
  struct Free {
    void operator()(float* p) const;
  };
  std::unique_ptr<float[], Free> memory_;
  size_t capacity_ = 0;
  PlanarView view_;
};

}  // namespace brenvia::ci
