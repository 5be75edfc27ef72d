#pragma once

#include <array>
#include <cmath>

namespace brenvia::color {

using Mat3 = std::array<double, 9>;  // row-major

// The sRGB transfer curve, mirrored for negative values so extended-range values survive.
inline double srgbDecode(double v) {
  double a = std::abs(v);
  double l = a <= 0.04045 ? a / 12.92 : std::pow((a + 0.055) / 1.055, 2.4);
  return std::copysign(l, v);
}

inline double srgbEncode(double l) {
  double a = std::abs(l);
  double v = a <= 0.0031308 ? 12.92 * a : 1.055 * std::pow(a, 1 / 2.4) - 0.055;
  return std::copysign(v, l);
}

// Linear RGB -> CIE XYZ (D65).
inline constexpr Mat3 kSRGBToXYZ{0.4124564, 0.3575761, 0.1804375, 0.2126729, 0.7151522,
                                 0.0721750, 0.0193339, 0.1191920, 0.9503041};
inline constexpr Mat3 kDisplayP3ToXYZ{0.4865709, 0.2656677, 0.1982173, 0.2289746, 0.6917385,
                                      0.0792869, 0.0000000, 0.0451134, 1.0439444};

inline Mat3 multiply(const Mat3& a, const Mat3& b) {
  Mat3 r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
  return r;
}

inline Mat3 invert(const Mat3& m) {
  double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
               m[2] * (m[3] * m[7] - m[4] * m[6]);
  double k = 1 / det;
  return {(m[4] * m[8] - m[5] * m[7]) * k, (m[2] * m[7] - m[1] * m[8]) * k, (m[1] * m[5] - m[2] * m[4]) * k,
          (m[5] * m[6] - m[3] * m[8]) * k, (m[0] * m[8] - m[2] * m[6]) * k, (m[2] * m[3] - m[0] * m[5]) * k,
          (m[3] * m[7] - m[4] * m[6]) * k, (m[1] * m[6] - m[0] * m[7]) * k, (m[0] * m[4] - m[1] * m[3]) * k};
}

inline bool isIdentity(const Mat3& m, double eps = 1e-9) {
  for (int i = 0; i < 9; ++i)
    if (std::abs(m[i] - (i % 4 == 0 ? 1.0 : 0.0)) > eps) return false;
  return true;
}

inline constexpr Mat3 kIdentity{1, 0, 0, 0, 1, 0, 0, 0, 1};

}  // namespace brenvia::color
