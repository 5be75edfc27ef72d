#pragma once

#include <string_view>

namespace brenvia {

// Recipe keys that several filter types of the catalogue read, each in its own way.
inline constexpr std::string_view kBVFilterIntensityKey = "intensity";
inline constexpr std::string_view kBVFilterRadiusKey = "radius";

}  // namespace brenvia
