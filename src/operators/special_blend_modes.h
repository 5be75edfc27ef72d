#pragma once

#include <string_view>

namespace brenvia {

// Two blend modes the platform has as kernels only, made available by name like the others.
inline constexpr std::string_view kBVVividLightBlendModeName = "BVVividLightBlendMode";
inline constexpr std::string_view kBVLinearLightBlendModeName = "BVLinearLightBlendMode";

// Adds both operations to the registry; later calls do nothing.
void BVRegisterSpecialBlendModes();

}  // namespace brenvia
