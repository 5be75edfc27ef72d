#include "catalogue/sharpen_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {

const BVParameterTable<BVSharpenSettings>& BVSharpenFilter::parameterTable() {
  static const BVParameterTable<BVSharpenSettings> table{
      {kBVFilterSharpnessKey, &BVSharpenSettings::sharpness, "strength of the luminance sharpening",
       BVParameterRange{0, 2}, BVParameterRead::Always},
  };
  return table;
}

CIFilterArray BVSharpenFilter::CIFiltersForSize(CGSize) {
  return {CIFilter::filterWithName("CISharpenLuminance", {{"inputSharpness", settings().sharpness}})};
}

void BVSharpenFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVSharpenFilter] Sharpen is not supported with CGContext. Use the "
      "Core Image chain or implement vImage.");
}

}  // namespace brenvia
