#include "catalogue/sharpen_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <cstdio>

namespace brenvia {

void BVSharpenFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  sharpness_ = numberFor(parameters, kBVFilterSharpnessKey).value_or(0.0);
}

CIFilterArray BVSharpenFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  return {CIFilter::filterWithName("CISharpenLuminance", {{"inputSharpness", sharpness_}})};
}

void BVSharpenFilter::applyToCGContext(BVBitmapContext*) {
  BVLog("[BVSharpenFilter] Sharpen is not supported with CGContext. Use the Core Image chain or implement vImage.");
}

BVFilterRef BVSharpenFilter::copy() const {
  auto made = std::static_pointer_cast<BVSharpenFilter>(BVFilter::copy());
  made->setSharpness(sharpness());
  return made;
}

std::string BVSharpenFilter::description() const {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; Sharpness: %f>", className().c_str(), static_cast<const void*>(this),
                sharpness_);
  return buffer;
}

}  // namespace brenvia
