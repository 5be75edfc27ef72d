#include "catalogue/fade_filter.h"

#include "catalogue/catalogue_keys.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

#include <cstdio>

namespace brenvia {

void BVFadeFilter::setParameters(const Value& parameters) {
  BVFilter::setParameters(parameters);
  intensity_ = numberFor(parameters, kBVFilterIntensityKey).value_or(0.0);
}

CIFilterArray BVFadeFilter::CIFiltersForSize(CGSize size) {
  BVFilter::CIFiltersForSize(size);
  const double m = intensity_ * 0.5;
  return {CIFilter::filterWithName("CIColorClamp", {{"inputMinComponents", CIVector{m, m, m, 1.0}},
                                                    {"inputMaxComponents", CIVector{1 - m, 1 - m, 1 - m, 1.0}}})};
}

void BVFadeFilter::applyToCGContext(BVBitmapContext*) {
  BVLog("[BVFadeFilter] Fade is not supported with CGContext. Use the Core Image chain or implement vImage.");
}

BVFilterRef BVFadeFilter::copy() const {
  auto made = std::static_pointer_cast<BVFadeFilter>(BVFilter::copy());
  made->setIntensity(intensity());
  return made;
}

std::string BVFadeFilter::description() const {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, "<%s: %p; Intensity: %f>", className().c_str(), static_cast<const void*>(this),
                intensity_);
  return buffer;
}

}  // namespace brenvia
