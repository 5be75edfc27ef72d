#pragma once

#include "platform/graphics/cg_image.h"

#include <cstddef>

namespace brenvia {

// The picture shrunk to width x height by area averaging: each new pixel is the mean of the source
// area it covers, fractional pixels weighted by their share, so fine detail turns into its average
// tone instead of aliasing. Colours are averaged premultiplied. The result is RGBA8Premultiplied in
// the picture's colour space. Null when a side would grow or become zero.
CGImageRef BVCreateAreaAveragedImage(const CGImageRef& image, size_t width, size_t height);

}  // namespace brenvia
