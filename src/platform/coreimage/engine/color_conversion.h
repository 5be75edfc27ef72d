#pragma once

#include "platform/graphics/color_space.h"

#include <array>
#include <optional>

namespace brenvia::ci {

// A conversion of unpremultiplied rgb between two spaces: decode the source curve, change
// primaries, encode the destination curve. Either space null means "no conversion".
class ColorConversion {
 public:
  ColorConversion() = default;
  ColorConversion(const CGColorSpace* from, const CGColorSpace* to);

  bool isIdentity() const { return identity_; }
  bool decodes() const { return decode_; }
  bool encodes() const { return encode_; }
  const std::optional<std::array<float, 9>>& matrix() const { return matrix_; }
  // Full conversion of one colour.
  std::array<float, 3> apply(std::array<float, 3> c) const;
  // The part after the source curve: matrix then destination curve.
  std::array<float, 3> applyAfterDecode(std::array<float, 3> c) const;

 private:
  bool identity_ = true, decode_ = false, encode_ = false;
  std::optional<std::array<float, 9>> matrix_;
};

inline constexpr int kEncodeTableSize = 4096;
// The sRGB curve sampled at kEncodeTableSize + 1 points over [0, 1], plus one padding entry.
const float* srgbEncodeTable();

// Fast sRGB encode of a value in [0, 1] (a 4096-segment table with linear interpolation; error
// below 2e-5); values outside [0, 1] take the exact curve.
float srgbEncodeFast(float v);
// The same for the decoding curve (error below 1e-6).
float srgbDecodeFast(float v);

}  // namespace brenvia::ci
