#pragma once

#include <string_view>

namespace brenvia {

// Luminance threshold: v = smoothstep(inputEdge0, inputEdge1, Rec. 709 luma of the premultiplied
// sample); the result is the opaque grey (v, v, v, 1) over the input's extent.
inline constexpr std::string_view kBVThresholdCIFilterName = "BVThresholdCIFilter";

// Adds the operation to the registry; later calls do nothing.
void BVRegisterThresholdCIFilter();

}  // namespace brenvia
