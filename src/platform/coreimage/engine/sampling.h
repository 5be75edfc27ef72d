#pragma once

#include "platform/coreimage/engine/planar_buffer.h"

#include <cmath>

namespace brenvia::ci {

// Rounds towards minus infinity, for pixel coordinates on either side of the origin.
inline int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Bilinear samples of `src` at the points (sx[i], sy[i]); pixels outside src.rect and NaN points
// read as transparent. A point at a pixel centre returns that pixel exactly.
void sampleBilinear(const PlanarView& src, const float* sx, const float* sy, Span& out);

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
