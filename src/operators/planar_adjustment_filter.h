#pragma once

#include "platform/coreimage/ci_image.h"

#include <string_view>

namespace brenvia {

// Straightens, stretches and keystone-corrects a picture, in that order, by chaining the engine's
// straighten and perspective operations; it has no pixel work of its own. Inputs: inputImage,
// inputRotation (radians), inputVerticalSkew, inputHorizontalSkew, inputVerticalStretch and
// inputHorizontalStretch (relative to the picture's size). All-zero inputs give the picture itself.
inline constexpr std::string_view kBVPlanarAdjustmentCIFilterName = "BVPlanarAdjustmentCIFilter";

struct BVPlanarAdjustmentInputs {
  float rotation = 0;  // radians
  float verticalSkew = 0, horizontalSkew = 0;
  float verticalStretch = 0, horizontalStretch = 0;

  // True when neither skew nor stretch is set.
  bool isRotationOnly() const {
    return verticalSkew == 0 && horizontalSkew == 0 && verticalStretch == 0 && horizontalStretch == 0;
  }
};

// The adjusted picture; null for a null picture.
CIImageRef BVPlanarAdjustmentImage(const CIImageRef& image, const BVPlanarAdjustmentInputs& inputs);

// Adds the operation to the registry; later calls do nothing.
void BVRegisterPlanarAdjustmentCIFilter();

}  // namespace brenvia
