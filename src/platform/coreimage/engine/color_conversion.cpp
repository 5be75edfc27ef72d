#include "platform/coreimage/engine/color_conversion.h"

#include <cmath>
#include <vector>

namespace brenvia::ci {

ColorConversion::ColorConversion(const CGColorSpace* from, const CGColorSpace* to) {
  if (!from || !to || from->isEquivalent(*to)) return;
  identity_ = false;
  decode_ = from->transfer() == CGColorSpace::Transfer::SRGB;
  encode_ = to->transfer() == CGColorSpace::Transfer::SRGB;
  // Grey spaces share the sRGB primaries: only the curve differs.
  if (from->toXYZ() != to->toXYZ()) {
    color::Mat3 m = color::multiply(color::invert(to->toXYZ()), from->toXYZ());
    std::array<float, 9> f;
    for (int i = 0; i < 9; ++i) f[size_t(i)] = float(m[size_t(i)]);
    matrix_ = f;
  }
}

std::array<float, 3> ColorConversion::applyAfterDecode(std::array<float, 3> c) const {
  if (matrix_) {
    const auto& m = *matrix_;
    c = {m[0] * c[0] + m[1] * c[1] + m[2] * c[2], m[3] * c[0] + m[4] * c[1] + m[5] * c[2],
         m[6] * c[0] + m[7] * c[1] + m[8] * c[2]};
  }
  if (encode_) {
    for (float& v : c) v = srgbEncodeFast(v);
  }
  return c;
}

std::array<float, 3> ColorConversion::apply(std::array<float, 3> c) const {
  if (identity_) return c;
  if (decode_) {
    for (float& v : c) v = float(color::srgbDecode(v));
  }
  return applyAfterDecode(c);
}

namespace {

// A curve sampled at kEncodeTableSize + 1 points over [0, 1], plus one padding entry.
std::vector<float> curveTable(double (*curve)(double)) {
  std::vector<float> v(kEncodeTableSize + 2);
  for (int i = 0; i <= kEncodeTableSize; ++i) v[size_t(i)] = float(curve(double(i) / kEncodeTableSize));
  v[kEncodeTableSize + 1] = v[kEncodeTableSize];
  return v;
}

float interpolate(const float* table, float x) {
  float t = x * kEncodeTableSize;
  int i = int(t);
  return table[i] + (table[i + 1] - table[i]) * (t - float(i));
}

const float* srgbDecodeTable() {
  static const std::vector<float> table = curveTable(color::srgbDecode);
  return table.data();
}

}  // namespace

const float* srgbEncodeTable() {
  static const std::vector<float> table = curveTable(color::srgbEncode);
  return table.data();
}

float srgbEncodeFast(float x) {
  if (!(x >= 0.0f && x <= 1.0f)) return float(color::srgbEncode(x));
  return interpolate(srgbEncodeTable(), x);
}

float srgbDecodeFast(float x) {
  if (!(x >= 0.0f && x <= 1.0f)) return float(color::srgbDecode(x));
  return interpolate(srgbDecodeTable(), x);
}

}  // namespace brenvia::ci
