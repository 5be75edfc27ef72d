#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerGaussianBlur();
void registerBoxBlur();
void registerDiscBlur();
void registerMotionBlur();
void registerZoomBlur();
void registerConvolution3X3();
void registerSharpenLuminance();
void registerUnsharpMask();

void registerBlurOperations() {
  registerGaussianBlur();
  registerBoxBlur();
  registerDiscBlur();
  registerMotionBlur();
  registerZoomBlur();
  registerConvolution3X3();
  registerSharpenLuminance();
  registerUnsharpMask();
}

}  // namespace brenvia::ci
