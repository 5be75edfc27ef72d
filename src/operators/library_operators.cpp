#include "operators/library_operators.h"

#include "operators/alpha_filter.h"
#include "operators/chroma_key_filter.h"
#include "operators/planar_adjustment_filter.h"
#include "operators/special_blend_modes.h"
#include "operators/threshold_filter.h"

namespace brenvia {

void BVRegisterLibraryOperators() {
  BVRegisterAlphaCIFilter();
  BVRegisterThresholdCIFilter();
  BVRegisterChromaKeyCIFilter();
  BVRegisterSpecialBlendModes();
  BVRegisterPlanarAdjustmentCIFilter();
}

}  // namespace brenvia
