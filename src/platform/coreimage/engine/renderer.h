#pragma once

#include "platform/coreimage/ci_image.h"
#include "platform/coreimage/engine/pixel_rect.h"
#include "platform/coreimage/engine/render_env.h"

#include <cstddef>
#include <cstdint>
#include <functional>

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

// Takes band k of a banded render: `rows` rows of rowBytes each, top first. False stops the render.
using BandConsumer = std::function<bool(size_t k, const uint8_t* data, size_t rowBytes, size_t rows)>;

// Renders `rect` in horizontal bands of bandRows rows, top band first, each band by one thread,
// and hands each band to `consume` on the thread that rendered it, as soon as it is done (bands
// may be consumed concurrently and out of order). Whole-frame memory is never needed for the
// output. False when a consumer failed or a source could not be read in full.
bool renderBands(const CIImageRef& image, const PixelRect& rect, OutputFormat format, const CGColorSpaceRef& colorSpace,
                 const RenderEnv& env, const RenderSchedule& schedule, int64_t bandRows, const BandConsumer& consume);

}  // namespace brenvia::ci
