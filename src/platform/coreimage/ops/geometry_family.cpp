#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerGeometryOperations() {}

}  // namespace brenvia::ci
