#include "platform/coreimage/ops/op_support.h"

namespace brenvia::ci {

void registerExposureAdjust();
void registerColorMatrix();
void registerColorControls();
void registerVibrance();
void registerHueAdjust();
void registerGammaAdjust();
void registerHighlightShadowAdjust();
void registerTemperatureAndTint();
void registerVignetteEffect();
void registerColorClamp();
void registerColorCube();
void registerColorCubeWithColorSpace();
void registerColorInvert();
void registerFalseColor();
void registerMinimumMaximumComponent();

void registerColorAdjustmentOperations() {
  registerExposureAdjust();
  registerColorMatrix();
  registerColorControls();
  registerVibrance();
  registerHueAdjust();
  registerGammaAdjust();
  registerHighlightShadowAdjust();
  registerTemperatureAndTint();
  registerVignetteEffect();
  registerColorClamp();
  registerColorCube();
  registerColorCubeWithColorSpace();
  registerColorInvert();
  registerFalseColor();
  registerMinimumMaximumComponent();
}

}  // namespace brenvia::ci
