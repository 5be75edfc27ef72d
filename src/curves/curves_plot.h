#pragma once

#include "curves/acv_object.h"
#include "platform/graphics/cg_image.h"

namespace brenvia {

// The curves drawn as a curves tool shows them, on a transparent square of 255 x 255 units at
// `scale` pixels a unit: red, green, blue and the master curve (black), then each colour curve with
// the master's influence added, faint. With `axes` the square gets a white ground, a frame and a
// grid of quarters, for a picture people look at.
CGImageRef BVCurvesImage(const CACVObject& curves, double scale, bool axes);

}  // namespace brenvia
