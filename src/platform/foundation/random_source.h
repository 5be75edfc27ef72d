#pragma once

#include <cstdint>

namespace brenvia {

// A uniform number from 0 to upperBound - 1, without bias, from a generator seeded by the operating
// system's random source (one generator per thread); 0 for a bound of 0 or 1.
uint32_t RandomInt32Uniform(uint32_t upperBound);

}  // namespace brenvia
