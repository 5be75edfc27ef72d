#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerExposureAdjust();
void registerColorMatrix();

void registerColorAdjustmentOperations() {
  registerExposureAdjust();
  registerColorMatrix();
}

}  // namespace brenvia::ci
