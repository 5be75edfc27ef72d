#include "operators/library_operators.h"

#include "operators/alpha_filter.h"
#include "operators/threshold_filter.h"

namespace brenvia {

void BVRegisterLibraryOperators() {
  BVRegisterAlphaCIFilter();
  BVRegisterThresholdCIFilter();
}

}  // namespace brenvia
