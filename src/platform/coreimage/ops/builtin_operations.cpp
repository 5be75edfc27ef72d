#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerBuiltinOperations() {
  registerColorAdjustmentOperations();
  registerCompositingOperations();
  registerGeometryOperations();
  registerBlurOperations();
}

}  // namespace brenvia::ci
