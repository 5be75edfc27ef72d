#pragma once

#include "platform/coreimage/ci_image.h"

#include <string_view>

namespace brenvia {

// Opacity: the colour kept, alpha scaled by inputAlpha (read as a 32-bit float). The chain step
// recognises it by name and lays its output over the picture from before the filter.
inline constexpr std::string_view kBVAlphaCIFilterName = "BVAlphaCIFilter";

// Adds the operation to the registry; later calls do nothing.
void BVRegisterAlphaCIFilter();

// The image with its opacity scaled by alpha.
CIImageRef BVAlphaCIFilterImageWithAlpha(double alpha, const CIImageRef& image);

}  // namespace brenvia
