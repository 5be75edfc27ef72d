#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerCompositingOperations() {}

}  // namespace brenvia::ci
