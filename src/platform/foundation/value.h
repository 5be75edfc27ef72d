#pragma once

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace brenvia {

// Parameter dictionaries, recipes and option dictionaries are JSON-shaped values.
using Value = nlohmann::json;

// Numbers are read as 32-bit floats and widened to doubles; booleans read as 0 or 1.
// Anything else (missing, string, array, object, null) gives nothing.
std::optional<double> BVNumber(const Value& v);
// The same, with the full double precision kept (for the few keys read as doubles).
std::optional<double> BVDouble(const Value& v);
std::optional<bool> BVBool(const Value& v);
std::optional<std::string> BVString(const Value& v);

// The member of a dictionary, or null when v is not a dictionary or has no such key.
const Value* BVMember(const Value& dict, std::string_view key);

}  // namespace brenvia
