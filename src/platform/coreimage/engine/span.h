#pragma once

#include <cstdint>

namespace brenvia::ci {

// Pixels are processed in spans of at most kSpan pixels along one row.
inline constexpr int kSpan = 256;

// A span of premultiplied RGBA float pixels in planar form, in the working space. Pixel i of
// the span is the plane pixel (x + i, y); its centre is (x + i + 0.5, y + 0.5).
struct Span {
  alignas(64) float r[kSpan];
  alignas(64) float g[kSpan];
  alignas(64) float b[kSpan];
  alignas(64) float a[kSpan];
  int64_t x = 0, y = 0;
  int n = 0;

  void clear(int from, int to) {
    for (int i = from; i < to; ++i) r[i] = g[i] = b[i] = a[i] = 0;
  }
  void clear() { clear(0, n); }
};

}  // namespace brenvia::ci
