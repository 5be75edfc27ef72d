#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerPorterDuffOperations();
void registerBlendWithMaskOperations();
void registerBlendModes();
void registerConstantColorGenerator();
void registerLinearGradient();
void registerRadialGradient();

void registerCompositingOperations() {
  registerPorterDuffOperations();
  registerBlendWithMaskOperations();
  registerBlendModes();
  registerConstantColorGenerator();
  registerLinearGradient();
  registerRadialGradient();
}

}  // namespace brenvia::ci
