#pragma once

#include "platform/graphics/cg_image.h"

#include <memory>
#include <optional>
#include <string>

namespace brenvia {

class BVFilter;
class CIFilter;

// What a blend filter needs of its mask: an operation that masks an image on the engine road, a
// picture to clip to on the bitmap road, and the name of the picture it caches.
class BVMask {
 public:
  virtual ~BVMask() = default;
  // An operation that takes the image to mask as inputImage, or null when there is nothing to mask.
  virtual std::shared_ptr<CIFilter> maskCIFilterForFilter(const BVFilter& filter) = 0;
  // The mask as a grey picture for clipping, or null.
  virtual CGImageRef maskImageForFilter(const BVFilter& filter) = 0;
  virtual std::optional<std::string> imageName() const = 0;
  // Drops the rendered mask kept for the picture of this mask.
  virtual void clearProcessingCache() = 0;
};

}  // namespace brenvia
