#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerAffineTransform();
void registerCrop();
void registerAffineClamp();
void registerStraightenFilter();
void registerPerspectiveTransform();
void registerPerspectiveCorrection();

void registerGeometryOperations() {
  registerAffineTransform();
  registerCrop();
  registerAffineClamp();
  registerStraightenFilter();
  registerPerspectiveTransform();
  registerPerspectiveCorrection();
}

}  // namespace brenvia::ci
