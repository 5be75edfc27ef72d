#include "operators/library_operators.h"

#include "operators/threshold_filter.h"

namespace brenvia {

void BVRegisterLibraryOperators() { BVRegisterThresholdCIFilter(); }

}  // namespace brenvia
