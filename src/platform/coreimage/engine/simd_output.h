#pragma once

#include "platform/coreimage/engine/color_conversion.h"

#include <cstdint>

namespace brenvia::ci {

// Byte order of a 32-bit output pixel: the byte index of r, g, b and a.
struct ByteOrder {
  int r, g, b, a;
};

// Writes n premultiplied pixels as 8-bit premultiplied bytes: alpha clamped to [0, 1], colour to
// [0, alpha], rounded to nearest. With `encode`, colour is first taken from linear to the sRGB
// curve (by table interpolation) on unpremultiplied values.
// The input arrays must be readable up to n rounded up to 16 (spans are). Runs the best vector
// code the processor offers.
void writeBytes(const float* r, const float* g, const float* b, const float* a, int n, bool encode, ByteOrder order,
                uint8_t* dst);

}  // namespace brenvia::ci
