#pragma once

#include "curves/curve_interpolation.h"

#include <string_view>

namespace brenvia {

// The points of a text such as "{0 0},{128 140},{255 255}": brace pairs split by commas, each
// holding x and y split by one blank. A malformed point is logged and left out; the others stay.
// Numbers read as 32-bit floats, text that is no number as 0. An empty text gives no points.
BVPointList BVCurvePointsFromString(std::string_view text);

}  // namespace brenvia
