#pragma once

#include "platform/foundation/value.h"

#include <optional>
#include <string>

namespace brenvia::cli {

// A recipe file (JSON, or a binary or XML property list) holding an array of parameter
// dictionaries; "-" reads standard input. On failure `error` says why.
std::optional<Value> readRecipe(const std::string& path, std::string& error);

}  // namespace brenvia::cli
