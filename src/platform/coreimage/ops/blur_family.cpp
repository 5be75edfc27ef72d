#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerBlurOperations() {}

}  // namespace brenvia::ci
