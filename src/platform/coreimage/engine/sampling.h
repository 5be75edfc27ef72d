#pragma once

#include "platform/coreimage/engine/planar_buffer.h"

#include <cmath>

namespace brenvia::ci {

// Rounds towards minus infinity, for pixel coordinates on either side of the origin.
inline int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Bilinear samples of `src` at the points (sx[i], sy[i]); pixels outside src.rect and NaN points
// read as transparent. A point at a pixel centre returns that pixel exactly.
inline void sampleBilinear(const PlanarView& src, const float* sx, const float* sy, Span& out) {
  const PixelRect& r = src.rect;
  for (int i = 0; i < out.n; ++i) {
    float fx = sx[i] - 0.5f, fy = sy[i] - 0.5f;
    if (!(std::isfinite(fx) && std::isfinite(fy)) || fx <= float(r.x - 1) || fy <= float(r.y - 1) ||
        fx >= float(r.maxX()) || fy >= float(r.maxY())) {
      out.r[i] = out.g[i] = out.b[i] = out.a[i] = 0;
      continue;
    }
    float x0f = std::floor(fx), y0f = std::floor(fy);
    float tx = fx - x0f, ty = fy - y0f;
    int64_t x0 = int64_t(x0f), y0 = int64_t(y0f);
    float w[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
    // Inside the buffer, the four neighbours are read without bounds checks (the common case).
    if (x0 >= r.x && x0 + 1 < r.maxX() && y0 >= r.y && y0 + 1 < r.maxY()) {
      const size_t off = size_t(y0 - r.y) * src.stride + size_t(x0 - r.x);
      float* channel[4] = {out.r, out.g, out.b, out.a};
      for (int c = 0; c < 4; ++c) {
        const float* p = src.plane[c] + off;
        channel[c][i] = w[0] * p[0] + w[1] * p[1] + w[2] * p[src.stride] + w[3] * p[src.stride + 1];
      }
      continue;
    }
    int64_t xs[4] = {x0, x0 + 1, x0, x0 + 1}, ys[4] = {y0, y0, y0 + 1, y0 + 1};
    float acc[4] = {0, 0, 0, 0};
    for (int k = 0; k < 4; ++k) {
      if (w[k] == 0 || xs[k] < r.x || xs[k] >= r.maxX() || ys[k] < r.y || ys[k] >= r.maxY()) continue;
      size_t off = size_t(ys[k] - r.y) * src.stride + size_t(xs[k] - r.x);
      for (int c = 0; c < 4; ++c) acc[c] += w[k] * src.plane[c][off];
    }
    out.r[i] = acc[0];
    out.g[i] = acc[1];
    out.b[i] = acc[2];
    out.a[i] = acc[3];
  }
}

// Adds a row span of input pixels into a reduced copy whose pixel (X, Y) averages the input block
// [X·kx, (X+1)·kx) × [Y·ky, (Y+1)·ky): each input pixel is added to its block's pixel in row
// `into.row(c, Y)`. Blocks are fixed in the plane, so the sums do not depend on how rows are split.
// The caller scales by 1 / (kx·ky) once every row of a block is in.
inline void addToReducedRow(const Span& s, int64_t kx, int64_t Y, const PlanarView& into) {
  const float* from[4] = {s.r, s.g, s.b, s.a};
  for (int c = 0; c < 4; ++c) {
    float* row = into.row(c, Y);
    const float* v = from[c];
    int i = 0;
    while (i < s.n) {
      int64_t X = floorDiv(s.x + i, kx);
      int end = int(std::min<int64_t>(s.n, (X + 1) * kx - s.x));
      float sum = row[X - into.rect.x];
      for (; i < end; ++i) sum += v[i];
      row[X - into.rect.x] = sum;
    }
  }
}

}  // namespace brenvia::ci
