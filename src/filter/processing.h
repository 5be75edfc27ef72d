#pragma once

#include "platform/coreimage/ci_detector.h"
#include "platform/coreimage/ci_image.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"

#include <memory>
#include <optional>
#include <vector>

namespace brenvia {

class BVFilter;
class BVInput;
class CIContext;

// What a filter sees of the processor that runs it.
class BVProcessing {
 public:
  virtual ~BVProcessing() = default;
  // The drawing context of the run.
  virtual std::shared_ptr<CIContext> context() const = 0;
  // The user inputs of the run, or null.
  virtual std::shared_ptr<BVInput> input() const = 0;
  // Values filters report back to the caller (a dictionary), or null.
  virtual Value output() const = 0;
  // The part of the canvas being processed.
  virtual CGRect processingRect() const = 0;
  virtual std::vector<std::shared_ptr<BVFilter>> filters() const = 0;
  // The object under which the run's random numbers are drawn, or null.
  virtual std::shared_ptr<const void> randomizationContext() const { return nullptr; }
  // The run's depth picture (disparity, 0 to 1) and portrait matte on the canvas of the processed
  // picture, or null.
  virtual CIImageRef disparityImage() const { return nullptr; }
  virtual CIImageRef portraitMatteImage() const { return nullptr; }
  // The largest face of the processed picture, in its coordinates, found on first request; none
  // when there is none or faces cannot be looked for.
  virtual std::optional<CIFaceFeature> detectedKeyFaceFeature() const { return std::nullopt; }
  // For a live preview, the least number of seconds between two random draws of a filter's values;
  // none for processors that render single pictures.
  virtual std::optional<double> randomizationFrequency() const { return std::nullopt; }
};

}  // namespace brenvia
