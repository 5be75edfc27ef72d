#pragma once

#include "platform/coreimage/ci_image.h"
#include "platform/coreimage/engine/pixel_rect.h"
#include "platform/coreimage/engine/render_env.h"

#include <cstddef>
#include <cstdint>

namespace brenvia::ci {

// Output pixel layouts; all premultiplied. RGBAh is half floats.
enum class OutputFormat { RGBA8, ARGB8, BGRA8, RGBAh, RGBAf };

size_t bytesPerPixel(OutputFormat f);

struct RenderTarget {
  uint8_t* data = nullptr;  // first (top) row of the rectangle
  size_t rowBytes = 0;
  OutputFormat format = OutputFormat::RGBA8;
  CGColorSpaceRef colorSpace;  // null: values written as they are in the working space
};

struct RenderSchedule {
  int threads = 0;     // 0: every core
  int tileSize = 512;  // pixels on a side
};

// Renders `rect` of `image` into the target, top row first. The result does not depend on the
// schedule. False when the plan cannot be made (never for a valid graph).
bool render(const CIImageRef& image, const PixelRect& rect, const RenderTarget& target, const RenderEnv& env,
            const RenderSchedule& schedule);

}  // namespace brenvia::ci
