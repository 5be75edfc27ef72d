#pragma once

#include "platform/coreimage/ci_context.h"
#include "platform/coreimage/ci_filter.h"

#include <cmath>
#include <cstdint>

namespace brenvia::bench {

// A 12 MP 8-bit RGB sRGB picture with smooth gradients and fine noise, like a decoded photo.
inline CGImageRef photoLikeImage(size_t w = 4032, size_t h = 3024) {
  auto image = CGImage::allocate(w, h, CGPixelFormat::RGB8, CGColorSpaceCreateDeviceRGB());
  uint32_t state = 12345;
  for (size_t y = 0; y < h; ++y) {
    uint8_t* row = image->mutableRow(y);
    for (size_t x = 0; x < w; ++x) {
      state = state * 1664525u + 1013904223u;
      int noise = int(state >> 28) - 8;
      double u = double(x) / double(w), v = double(y) / double(h);
      int r = int(255 * (0.5 + 0.4 * std::sin(6 * u + 2 * v))) + noise;
      int g = int(255 * (0.4 + 0.3 * std::cos(5 * v - u))) + noise;
      int b = int(255 * (0.3 + 0.3 * u * v)) + noise;
      row[3 * x] = uint8_t(std::clamp(r, 0, 255));
      row[3 * x + 1] = uint8_t(std::clamp(g, 0, 255));
      row[3 * x + 2] = uint8_t(std::clamp(b, 0, 255));
    }
  }
  return image;
}

// Six point operations of a typical look; they fuse into one pass. Null while an operation is missing.
inline CIImageRef pointChain(const CIImageRef& source) {
  CIImageRef image = source;
  auto step = [&image](std::string_view name, const CIFilterParameters& parameters) {
    if (image) image = image->imageByApplyingFilter(name, parameters);
  };
  step("CIExposureAdjust", {{"inputEV", 0.3}});
  step("CIColorControls", {{"inputSaturation", 1.2}, {"inputContrast", 1.1}});
  step("CIColorMatrix", {{"inputRVector", CIVector{0.9, 0.1, 0, 0}}});
  step("CIVibrance", {{"inputAmount", 0.4}});
  step("CIGammaAdjust", {{"inputPower", 0.9}});
  auto tint = CIImage::imageWithColor(CIColor(0.9, 0.6, 0.3, 0.5))->imageByCroppingToRect(source->extent());
  return image ? tint->imageByCompositingOverImage(image) : nullptr;
}

}  // namespace brenvia::bench
