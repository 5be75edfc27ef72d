#pragma once

// IEEE 754 half-precision numbers as 16-bit patterns, for pixel memory of half-float layouts. The
// compilers' own half type is not available on every target we build for.

#include <cmath>
#include <cstdint>
#include <cstring>

namespace brenvia {

inline float floatFromHalf(uint16_t half) {
  const uint32_t sign = uint32_t(half & 0x8000) << 16, exponent = (half >> 10) & 0x1F, mantissa = half & 0x3FF;
  if (exponent == 0) {
    const float tiny = std::ldexp(float(mantissa), -24);
    return sign ? -tiny : tiny;
  }
  const uint32_t bits = exponent == 31 ? sign | 0x7F800000 | mantissa << 13
                                       : sign | (exponent + 112) << 23 | mantissa << 13;
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Rounds to the nearest half, ties to even; beyond the largest half is infinity.
inline uint16_t halfFromFloat(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const uint16_t sign = uint16_t((bits >> 16) & 0x8000);
  const float magnitude = std::fabs(value);
  if (std::isnan(value)) return sign | 0x7E00;
  if (magnitude >= 65520.0f) return sign | 0x7C00;
  // Below the smallest normal half: a count of 2^-24 steps (1024 of them make that normal).
  if (magnitude < 6.103515625e-05f) return sign | uint16_t(std::nearbyint(magnitude * 16777216.0f));
  const uint32_t unsignedBits = bits & 0x7FFFFFFF, dropped = unsignedBits & 0x1FFF;
  uint32_t half = (unsignedBits >> 13) - (112u << 10);
  if (dropped > 0x1000 || (dropped == 0x1000 && (half & 1))) ++half;
  return sign | uint16_t(half);
}

}  // namespace brenvia
