#pragma once

#include "filter/filter.h"
#include "platform/coreimage/ci_context.h"

namespace brenvia {

// The image of `image` after every filter that takes part (enabled, and willing to apply) has
// added its operations at `size`. Null, with a log line, for a null image.
CIImageRef CIImageWithBVFilters(const CIImageRef& image, const BVFilterArray& filters, CGSize size);

// Connects a list of operations: sets each one's inputImage and inputBackgroundImage from the
// image before it (`current`) and the image before the filter began (`previous`). An opacity
// operation ("BVAlphaCIFilter") is held back and laid over the earlier picture, so a faded effect
// fades towards the picture from before it, not towards transparency.
void bv_CIImageChainWithFilters(const CIFilterArray& operations, CIImageRef& previous, CIImageRef& current);

// The chain step over `operations` starting from `image`.
CIImageRef CIImageWithCIFilters(const CIImageRef& image, const CIFilterArray& operations);

std::shared_ptr<CIContext> BVGetCIContextWithOptionsAndContext(const CIContextOptions& options);

double BVMemoryCostForFilters(const BVFilterArray& filters);

}  // namespace brenvia
