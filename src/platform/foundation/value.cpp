#include "platform/foundation/value.h"

#include <nlohmann/json.hpp>

namespace brenvia {

std::optional<double> BVDouble(const Value& v) {
  if (v.is_boolean()) return v.get<bool>() ? 1.0 : 0.0;
  if (v.is_number()) return v.get<double>();
  return std::nullopt;
}

std::optional<double> BVNumber(const Value& v) {
  auto d = BVDouble(v);
  if (!d) return std::nullopt;
  return static_cast<double>(static_cast<float>(*d));
}

std::optional<bool> BVBool(const Value& v) {
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return v.get<double>() != 0;
  return std::nullopt;
}

std::optional<std::string> BVString(const Value& v) {
  if (v.is_string()) return v.get<std::string>();
  return std::nullopt;
}

const Value* BVMember(const Value& dict, std::string_view key) {
  if (!dict.is_object()) return nullptr;
  auto it = dict.find(key);
  return it == dict.end() ? nullptr : &*it;
}

}  // namespace brenvia
