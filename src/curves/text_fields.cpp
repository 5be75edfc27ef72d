#include "curves/text_fields.h"

#include <cstdlib>
#include <string>

namespace brenvia {

std::vector<std::string_view> BVComponentsSeparatedBy(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == separator) {
      parts.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  return parts;
}

float BVFloatValue(std::string_view text) {
  const std::string copy(text);
  return std::strtof(copy.c_str(), nullptr);
}

}  // namespace brenvia
