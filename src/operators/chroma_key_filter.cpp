#include "operators/chroma_key_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/coreimage/ops/op_support.h"
#include "platform/foundation/once.h"
#include "platform/foundation/recently_used_cache.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace brenvia {
namespace {

// The removal band depends on the key's hue and the threshold only.
struct CubeKey {
  double hue, threshold;
  bool operator==(const CubeKey&) const = default;
};

CIData buildCube(const CubeKey& key) {
  constexpr int n = kBVChromaKeyCubeDimension;
  auto bytes = std::make_shared<std::vector<uint8_t>>(size_t(n) * n * n * 4 * sizeof(float));
  uint8_t* out = bytes->data();
  const double low = key.hue - key.threshold, high = key.hue + key.threshold;
  for (int b = 0; b < n; ++b) {
    for (int g = 0; g < n; ++g) {
      for (int r = 0; r < n; ++r) {
        const double R = r / 63.0, G = g / 63.0, B = b / 63.0;
        const double h = BVChromaKeyConvertRGBToHSV(R, G, B).hue;
        const double a = low < h && h < high ? 0.0 : 1.0;
        const float cell[4] = {float(R * a), float(G * a), float(B * a), float(a)};
        std::memcpy(out, cell, sizeof cell);
        out += sizeof cell;
      }
    }
  }
  return bytes;
}

// A few cubes stay built: a recipe rarely has more than one key, and each cube is 4 MB.
BVRecentlyUsedCache<CubeKey, CIData>& cubeCache() {
  static BVRecentlyUsedCache<CubeKey, CIData> cache(4);
  return cache;
}

CIImageRef keyedOver(const CIFilter& f) {
  CIImageRef foreground = f.image("inputImage");
  if (!foreground) return nullptr;
  CIImageRef keyed = foreground->imageByApplyingFilter(
      "CIColorCube", {{"inputCubeDimension", double(kBVChromaKeyCubeDimension)},
                      {"inputCubeData", BVChromaKeyColorCube(f.color("inputChromaKeyColor"), f.number("inputThreshold"))}});
  auto over = CIFilter::filterWithName("CISourceOverCompositing");
  over->setValue(keyed, kCIInputImageKey);
  over->setValue(f.image("inputBackgroundImage"), kCIInputBackgroundImageKey);
  return over->outputImage();
}

}  // namespace

BVHSV BVChromaKeyConvertRGBToHSV(double red, double green, double blue) {
  const double M = std::max({red, green, blue}), m = std::min({red, green, blue}), d = M - m;
  double hue;
  if (M == m) {
    hue = 0;
  } else if (M == red) {
    hue = std::fmod(float((green - blue) / d * 60), 360.0f);
  } else if (M == green) {
    hue = (blue - red) / d * 60 + 120;
  } else {
    hue = (red - green) / d * 60 + 240;
  }
  return {hue, M == 0 ? 0 : 1 - m / M, M};
}

CIData BVChromaKeyColorCube(const CIColor& key, double threshold) {
  const double keyHue = BVChromaKeyConvertRGBToHSV(key.red(), key.green(), key.blue()).hue;
  const CubeKey band{keyHue, double(float(threshold) * 360.0f)};
  return cubeCache().valueFor(band, [&] { return buildCube(band); });
}

void BVRegisterChromaKeyCIFilter() {
  static BVOnce once;
  once([] {
    CIFilter::registerOperation(
        std::string(kBVChromaKeyCIFilterName),
        {"Chroma Key",
         {std::string(kCICategoryCompositeOperation), std::string(kCICategoryVideo), std::string(kCICategoryStillImage)},
         {ci::imageInput(), ci::imageInput("inputBackgroundImage"), {"inputChromaKeyColor", "CIColor", {}, {}, {}},
          ci::numberInput("inputThreshold", double(0.1f))}},
        keyedOver);
  });
}

}  // namespace brenvia
