#pragma once

#include <cstddef>

namespace brenvia::ci {

// Running sums restarted every `segment` values, so that a sum over any window is computed the
// same way wherever a tile starts: prefix[i] = sum of v from the start of i's segment up to i - 1;
// totals[s] = sum of segment s.
inline void segmentPrefix(const float* v, size_t n, size_t segment, float* prefix, float* totals) {
  prefix[0] = 0;
  for (size_t i = 0; i < n; ++i) {
    float next = prefix[i] + v[i];
    if ((i + 1) % segment == 0) {
      totals[i / segment] = next;
      next = 0;
    }
    prefix[i + 1] = next;
  }
}

}  // namespace brenvia::ci
