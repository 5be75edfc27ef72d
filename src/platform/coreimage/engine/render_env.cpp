#include "platform/coreimage/engine/render_env.h"

#include "platform/coreimage/ci_color.h"
#include "platform/coreimage/engine/color_conversion.h"

namespace brenvia::ci {

std::array<double, 3> RenderEnv::toWorking(std::array<double, 3> rgb, const CGColorSpace* space) const {
  if (!managed() || !space) return rgb;
  auto c = ColorConversion(space, workingSpace.get()).apply({float(rgb[0]), float(rgb[1]), float(rgb[2])});
  return {c[0], c[1], c[2]};
}

std::array<double, 3> RenderEnv::fromWorking(std::array<double, 3> rgb, const CGColorSpace* space) const {
  if (!managed() || !space) return rgb;
  auto c = ColorConversion(workingSpace.get(), space).apply({float(rgb[0]), float(rgb[1]), float(rgb[2])});
  return {c[0], c[1], c[2]};
}

std::array<float, 4> RenderEnv::pixel(const CIColor& color) const {
  auto c = toWorking({color.red(), color.green(), color.blue()}, color.colorSpace().get());
  float a = float(color.alpha());
  return {float(c[0]) * a, float(c[1]) * a, float(c[2]) * a, a};
}

}  // namespace brenvia::ci
