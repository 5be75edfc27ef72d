#pragma once

#include "platform/coreimage/ci_image.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"

#include <memory>
#include <string_view>
#include <vector>

namespace brenvia {

class CIContext;

inline constexpr std::string_view CIDetectorTypeFace = "CIDetectorTypeFace";
inline constexpr std::string_view CIDetectorAccuracy = "CIDetectorAccuracy";
inline constexpr std::string_view CIDetectorAccuracyHigh = "CIDetectorAccuracyHigh";
inline constexpr std::string_view CIDetectorAccuracyLow = "CIDetectorAccuracyLow";
inline constexpr std::string_view CIDetectorMinFeatureSize = "CIDetectorMinFeatureSize";

// A face found in a picture, in the picture's coordinates (y up). The left eye is the one with the
// smaller x. Eyes and mouth are always given: where the eyes cannot be told apart they are placed
// where faces have them.
struct CIFaceFeature {
  CGRect bounds{};
  bool hasLeftEyePosition = false, hasRightEyePosition = false, hasMouthPosition = false, hasFaceAngle = false;
  CGPoint leftEyePosition{}, rightEyePosition{}, mouthPosition{};
  double faceAngle = 0;  // degrees of the line from the left eye to the right one
};

// Finds faces with the frontal face and eye cascades that the OpenCV data package ships, on a copy
// of the picture whose longer side is at most 1024 pixels.
class CIDetector {
 public:
  // Options: CIDetectorAccuracy (high by default: finer steps between sizes), CIDetectorMinFeatureSize
  // (share of the picture's shorter side below which faces are ignored, 0.05 by default). Null, with
  // one log line, for another type or when the cascade files cannot be found or read.
  static std::shared_ptr<CIDetector> detectorOfType(std::string_view type, const std::shared_ptr<CIContext>& context,
                                                    const Value& options);
  // Faces ordered by the left edge of their bounds, then the bottom one. None for a picture without
  // a finite extent.
  std::vector<CIFaceFeature> featuresInImage(const CIImageRef& image) const;

  struct Cascades;

 private:
  std::shared_ptr<CIContext> context_;
  std::shared_ptr<Cascades> cascades_;
  bool highAccuracy_ = true;
  double minFeatureSize_ = 0.05;
};

}  // namespace brenvia
