#pragma once

#include <chrono>

namespace brenvia {

// Seconds on a clock that never goes back, for measuring how long ago something happened.
inline double BVMonotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace brenvia
