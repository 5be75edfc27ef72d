#include "platform/coreimage/engine/planar_buffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace brenvia::ci {

void PlanarView::read(Span& s) const {
  int64_t y = s.y;
  if (y < rect.y || y >= rect.maxY()) {
    s.clear();
    return;
  }
  int64_t from = std::clamp<int64_t>(rect.x - s.x, 0, s.n);
  int64_t to = std::clamp<int64_t>(rect.maxX() - s.x, from, s.n);
  s.clear(0, int(from));
  s.clear(int(to), s.n);
  if (to <= from) return;
  size_t offset = size_t(s.x + from - rect.x), count = size_t(to - from) * sizeof(float);
  std::memcpy(s.r + from, row(0, y) + offset, count);
  std::memcpy(s.g + from, row(1, y) + offset, count);
  std::memcpy(s.b + from, row(2, y) + offset, count);
  std::memcpy(s.a + from, row(3, y) + offset, count);
}

void PlanarView::write(const Span& s) const {
  size_t offset = size_t(s.x - rect.x), count = size_t(s.n) * sizeof(float);
  std::memcpy(row(0, s.y) + offset, s.r, count);
  std::memcpy(row(1, s.y) + offset, s.g, count);
  std::memcpy(row(2, s.y) + offset, s.b, count);
  std::memcpy(row(3, s.y) + offset, s.a, count);
}

void PlanarBuffer::Free::operator()(float* p) const { std::free(p); }

void PlanarBuffer::reset(const PixelRect& rect) {
  size_t stride = (size_t(std::max<int64_t>(rect.w, 0)) + 15) & ~size_t{15};
  size_t planeSize = stride * size_t(std::max<int64_t>(rect.h, 0));
  size_t need = planeSize * 4;
  if (need > capacity_) {
    void* p = std::aligned_alloc(64, std::max<size_t>(need, 16) * sizeof(float));
    if (!p) throw std::bad_alloc();
    memory_.reset(static_cast<float*>(p));
    capacity_ = need;
  }
  view_.rect = rect;
  view_.stride = stride;
  for (int c = 0; c < 4; ++c) view_.plane[c] = memory_.get() + c * planeSize;
}

}  // namespace brenvia::ci
