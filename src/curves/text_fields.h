#pragma once

#include <string_view>
#include <vector>

namespace brenvia {

// The parts of the text between separators, empty parts included; one part for an empty text.
std::vector<std::string_view> BVComponentsSeparatedBy(std::string_view text, char separator);

// The number at the start of the text (leading blanks skipped) as a 32-bit float; 0 when none.
float BVFloatValue(std::string_view text);

}  // namespace brenvia
