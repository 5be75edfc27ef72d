#pragma once

#include "platform/coreimage/ci_image.h"
#include "platform/foundation/value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace brenvia {

class BVFilter;
class BVImage;
class CIFilter;

// Where a blend filter's effect shows: an operation that masks an image on the engine road, a
// picture of the mask (for clipping on the bitmap road and for blurs), and the name of the picture it
// caches. Masks from recipes are made by the masks layer through the maker it installs at start-up.
class BVMask {
 public:
  virtual ~BVMask() = default;

  // The mask of a recipe's `mask` dictionary; null for null, for an empty dictionary, and for one
  // that gives no source.
  static std::shared_ptr<BVMask> initWithDictionary(const Value& dictionary);
  using Maker = std::function<std::shared_ptr<BVMask>(const Value& dictionary)>;
  static void setMaker(Maker maker);

  // An operation that takes the image to mask as inputImage, or null when there is nothing to mask.
  virtual std::shared_ptr<CIFilter> maskCIFilterForFilter(const BVFilter& filter) = 0;
  // The mask for the filter's processed rectangle, placed there, or null.
  virtual std::shared_ptr<BVImage> maskImageForFilter(const BVFilter& filter) = 0;
  virtual std::optional<std::string> imageName() const = 0;
  // Drops the rendered mask kept for the picture of this mask.
  virtual void clearProcessingCache() = 0;
};

}  // namespace brenvia
