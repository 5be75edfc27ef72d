#pragma once

#include "platform/coreimage/ci_value.h"

#include <string_view>

namespace brenvia {

// Cuts a band of hues out of inputImage through a colour cube and lays the rest over
// inputBackgroundImage. Inputs: inputChromaKeyColor (the colour to remove) and inputThreshold (half
// the width of the band as a fraction of the hue circle, default 0.1).
inline constexpr std::string_view kBVChromaKeyCIFilterName = "BVChromaKeyCIFilter";
inline constexpr int kBVChromaKeyCubeDimension = 64;

// Adds the operation to the registry; later calls do nothing.
void BVRegisterChromaKeyCIFilter();

struct BVHSV {
  double hue, saturation, value;
};

// Hue in degrees from −60 (a red leaning to blue) to 300, saturation and value in 0…1.
BVHSV BVChromaKeyConvertRGBToHSV(double red, double green, double blue);

// The 64³ cube (RGBA float32 cells, red fastest) that makes the hues within threshold × 360
// degrees of the key's hue transparent black and keeps every other colour. Cubes are built once per
// key hue and threshold and shared.
CIData BVChromaKeyColorCube(const CIColor& key, double threshold);

}  // namespace brenvia
