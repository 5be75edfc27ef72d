#include "operators/special_blend_modes.h"

#include "platform/coreimage/ops/blend_mode_kernel.h"
#include "platform/foundation/once.h"

namespace brenvia {

void BVRegisterSpecialBlendModes() {
  static BVOnce once;
  once([] {
    const std::vector<std::string> categories{std::string(kCICategoryCompositeOperation), std::string(kCICategoryVideo),
                                              std::string(kCICategoryStillImage)};
    ci::registerBlendMode<ci::blend::VividLight>(kBVVividLightBlendModeName, "Vivid Light", categories);
    ci::registerBlendMode<ci::blend::LinearLight>(kBVLinearLightBlendModeName, "Linear Light", categories);
  });
}

}  // namespace brenvia
