#include "catalogue/unsharp_mask_filter.h"

#include "catalogue/catalogue_keys.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <algorithm>
#include <cstdio>

namespace brenvia {

void BVUnsharpMaskFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  radius_ = numberFor(parameters, kBVFilterRadiusKey).value_or(0.0);
  intensity_ = numberFor(parameters, kBVFilterIntensityKey).value_or(0.0);
}

double BVUnsharpMaskFilter::_proportionalRadiusForSize(CGSize size) const {
  return std::min(size.width, size.height) / 640.0 * radius_;
}

CIFilterArray BVUnsharpMaskFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  return {CIFilter::filterWithName("CIUnsharpMask",
                                   {{"inputRadius", _proportionalRadiusForSize(size)}, {"inputIntensity", intensity_}})};
}

void BVUnsharpMaskFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVUnsharpMaskFilter] Unsharp mask is not supported with CGContext. Use the Core Image chain or implement "
      "vImage.");
}

BVFilterRef BVUnsharpMaskFilter::copy() const {
  auto made = std::static_pointer_cast<BVUnsharpMaskFilter>(BVFilter::copy());
  made->setRadius(radius());
  made->setIntensity(intensity());
  return made;
}

std::string BVUnsharpMaskFilter::description() const {
  char buffer[160];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; Intensity: %f, Radius: %f>", className().c_str(),
                static_cast<const void*>(this), intensity_, radius_);
  return buffer;
}

}  // namespace brenvia
