#pragma once

#include "platform/geometry/geometry.h"

#include <algorithm>
#include <cstdint>

namespace brenvia::ci {

// An integer rectangle of whole pixels in the working plane (y up). Pixel (x, y) covers
// [x, x+1) x [y, y+1). Infinite extents are clipped to +-kPixelLimit.
struct PixelRect {
  int64_t x = 0, y = 0, w = 0, h = 0;

  static constexpr int64_t kPixelLimit = int64_t{1} << 40;

  bool empty() const { return w <= 0 || h <= 0; }
  int64_t maxX() const { return x + w; }
  int64_t maxY() const { return y + h; }
  bool contains(const PixelRect& o) const {
    return o.empty() || (o.x >= x && o.y >= y && o.maxX() <= maxX() && o.maxY() <= maxY());
  }
  friend bool operator==(const PixelRect&, const PixelRect&) = default;

  PixelRect intersect(const PixelRect& o) const {
    int64_t x0 = std::max(x, o.x), y0 = std::max(y, o.y);
    int64_t x1 = std::min(maxX(), o.maxX()), y1 = std::min(maxY(), o.maxY());
    if (x1 <= x0 || y1 <= y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
  }
  PixelRect unite(const PixelRect& o) const {
    if (empty()) return o;
    if (o.empty()) return *this;
    int64_t x0 = std::min(x, o.x), y0 = std::min(y, o.y);
    int64_t x1 = std::max(maxX(), o.maxX()), y1 = std::max(maxY(), o.maxY());
    return {x0, y0, x1 - x0, y1 - y0};
  }
  PixelRect outset(int64_t dx, int64_t dy) const {
    if (empty()) return {};
    return clip({x - dx, y - dy, w + 2 * dx, h + 2 * dy});
  }
  static PixelRect clip(PixelRect r) {
    int64_t x0 = std::clamp(r.x, -kPixelLimit, kPixelLimit), y0 = std::clamp(r.y, -kPixelLimit, kPixelLimit);
    int64_t x1 = std::clamp(r.maxX(), -kPixelLimit, kPixelLimit), y1 = std::clamp(r.maxY(), -kPixelLimit, kPixelLimit);
    return {x0, y0, std::max<int64_t>(0, x1 - x0), std::max<int64_t>(0, y1 - y0)};
  }
  // The pixels an extent touches (floor of the origin, ceil of the far edges).
  static PixelRect covering(const CGRect& r) {
    if (CGRectIsEmpty(r)) return {};
    if (CGRectIsInfinite(r)) return {-kPixelLimit, -kPixelLimit, 2 * kPixelLimit, 2 * kPixelLimit};
    auto lim = [](double v) { return std::clamp(v, double(-kPixelLimit), double(kPixelLimit)); };
    int64_t x0 = int64_t(std::floor(lim(CGRectGetMinX(r)))), y0 = int64_t(std::floor(lim(CGRectGetMinY(r))));
    int64_t x1 = int64_t(std::ceil(lim(CGRectGetMaxX(r)))), y1 = int64_t(std::ceil(lim(CGRectGetMaxY(r))));
    return {x0, y0, x1 - x0, y1 - y0};
  }
  CGRect cgRect() const { return CGRectMake(double(x), double(y), double(w), double(h)); }
};

}  // namespace brenvia::ci
