#pragma once

#include <bit>
#include <cstdint>

// Float functions written so that g++ vectorises the loops that call them (no library calls, no
// branches): relative error a few 1e-7 for results near 1, growing with |log2 x| as float allows.
namespace brenvia::ci::fast {

// log2(x) for x > 0: exponent from the bits, mantissa in [sqrt(1/2), sqrt(2)) through the atanh series.
inline float log2(float x) {
  uint32_t bits = std::bit_cast<uint32_t>(x);
  int32_t e = int32_t((bits >> 23) & 0xff) - 127;
  float m = std::bit_cast<float>((bits & 0x007fffffu) | 0x3f800000u);
  bool high = m > 1.41421356f;
  m = high ? m * 0.5f : m;
  e = high ? e + 1 : e;
  float t = (m - 1.0f) / (m + 1.0f), t2 = t * t;
  float series = t * (2.0f + t2 * (0.6666666667f + t2 * (0.4f + t2 * (0.2857142857f + t2 * 0.2222222222f))));
  return float(e) + series * 1.4426950409f;
}

// 2^y; underflows to 0 below -126 and saturates above 128.
inline float exp2(float y) {
  y = y < -126.0f ? -126.0f : (y > 127.99f ? 127.99f : y);
  float n = float(int32_t(y + 127.5f) - 127);  // nearest integer, so f lies in [-1/2, 1/2]
  float f = y - n;
  float p = 1.0f + f * (0.6931471806f + f * (0.2402265070f + f * (0.0555041087f + f * (0.0096181291f +
                    f * (0.0013333558f + f * 0.0001540353f)))));
  return p * std::bit_cast<float>(uint32_t(int32_t(n) + 127) << 23);
}

// sign(x)·|x|^p, with 0^p = 0 for p > 0.
inline float signedPow(float x, float p) {
  float a = x < 0 ? -x : x;
  float r = a > 0 ? exp2(p * log2(a)) : 0.0f;
  return x < 0 ? -r : r;
}

}  // namespace brenvia::ci::fast
