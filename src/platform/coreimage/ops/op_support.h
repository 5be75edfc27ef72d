#pragma once

#include "platform/coreimage/ci_filter.h"
#include "platform/coreimage/engine/kernel.h"
#include "platform/coreimage/engine/vector_clones.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>

// Small helpers shared by the operation files: input declarations and alpha handling.
namespace brenvia::ci {

inline CIInputSpec imageInput(std::string key = "inputImage") { return {std::move(key), "CIImage", {}, {}, {}}; }
inline CIInputSpec numberInput(std::string key, double fallback, std::optional<double> min = {},
                               std::optional<double> max = {}) {
  return {std::move(key), "NSNumber", fallback, min, max};
}
inline CIInputSpec vectorInput(std::string key, CIVector fallback) {
  return {std::move(key), "CIVector", std::move(fallback), {}, {}};
}
inline CIInputSpec colorInput(std::string key, CIColor fallback) {
  return {std::move(key), "CIColor", std::move(fallback), {}, {}};
}
inline CIInputSpec transformInput(std::string key) {
  return {std::move(key), "NSValue", CGAffineTransformIdentity, {}, {}};
}
inline CIInputSpec dataInput(std::string key) { return {std::move(key), "NSData", {}, {}, {}}; }

// The categories of a platform operation: the given ones plus video, still image and built-in.
inline std::vector<std::string> builtinCategories(std::initializer_list<std::string_view> own) {
  std::vector<std::string> all(own.begin(), own.end());
  for (auto c : {kCICategoryVideo, kCICategoryStillImage, kCICategoryBuiltIn}) all.emplace_back(c);
  return all;
}

// Straight colour of a premultiplied pixel; zero where alpha is zero.
inline float unpremultiplyFactor(float a) { return a > 0 ? 1.0f / a : 0.0f; }

// Rec. 709 luma of the unpremultiplied colour of pixel i.
inline float unpremultipliedLuma(const Span& s, int i) {
  return (0.2126f * s.r[i] + 0.7152f * s.g[i] + 0.0722f * s.b[i]) * unpremultiplyFactor(s.a[i]);
}

// Fills the span with mix(from, to, t[i]) on premultiplied pixels (the gradients' colour ramp).
inline void mixSpan(Span& s, const std::array<float, 4>& from, const std::array<float, 4>& to, const float* t) {
  for (int i = 0; i < s.n; ++i) {
    s.r[i] = from[0] + (to[0] - from[0]) * t[i];
    s.g[i] = from[1] + (to[1] - from[1]) * t[i];
    s.b[i] = from[2] + (to[2] - from[2]) * t[i];
    s.a[i] = from[3] + (to[3] - from[3]) * t[i];
  }
}

// The unpremultiplied luma of an image as an opaque grey picture (for blurring a luma plane).
CIImageRef lumaPlane(const CIImageRef& image);

// The largest radius a direct neighbourhood blur (box, disc, motion) takes: a wider one spreads a
// picture thinner but would cost time and memory in proportion to the radius.
inline constexpr double kWidestDirectBlurRadius = 256;
inline double boundedBlurRadius(double radius) { return std::min(radius, kWidestDirectBlurRadius); }

// Registration of the platform operations, one function per family of operations.
void registerColorAdjustmentOperations();
void registerCompositingOperations();
void registerGeometryOperations();
void registerBlurOperations();

}  // namespace brenvia::ci
