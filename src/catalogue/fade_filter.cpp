#include "catalogue/fade_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"

namespace brenvia {

const BVParameterTable<BVFadeSettings>& BVFadeFilter::parameterTable() {
  static const BVParameterTable<BVFadeSettings> table{
      {kBVFilterIntensityKey, &BVFadeSettings::intensity, "how far colours are pulled towards mid grey",
       BVParameterRange{0, 1}, BVParameterRead::Always},
  };
  return table;
}

CIFilterArray BVFadeFilter::CIFiltersForSize(CGSize) {
  const double m = settings().intensity * 0.5;
  return {CIFilter::filterWithName("CIColorClamp", {{"inputMinComponents", CIVector{m, m, m, 1.0}},
                                                    {"inputMaxComponents", CIVector{1 - m, 1 - m, 1 - m, 1.0}}})};
}

void BVFadeFilter::applyToCGContext(BVBitmapContext*) {
  BVLog(
      "[BVFadeFilter] Fade is not supported with CGContext. Use the Core "
      "Image chain or implement vImage.");
}

}  // namespace brenvia
