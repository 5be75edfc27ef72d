#include "filter/dynamic_parameters.h"

#include "filter/randomization.h"
#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <span>
#include <vector>

namespace brenvia {
namespace {

// Results are whole steps of 1 / kSteps.
constexpr double kSteps = 10000.0;
// Scaled bounds beyond this cannot be told apart in 32-bit floats nor subtracted safely.
constexpr float kLargestScaledBound = 0x1p61f;

void refuse(const Value& transformation, const std::string& why) {
  BVLog("[BVTransforms] Unable to apply " + transformation.dump() + ": " + why);
}

// The dot-separated steps of a key path; nothing for an empty path or an empty step.
std::optional<std::vector<std::string>> keysOf(const std::string& keyPath) {
  std::vector<std::string> keys;
  size_t start = 0;
  for (;;) {
    size_t dot = keyPath.find('.', start);
    keys.push_back(keyPath.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
    if (keys.back().empty()) return std::nullopt;
    if (dot == std::string::npos) return keys;
    start = dot + 1;
  }
}

// Sets value at the key path under node; a missing step sets nothing. False when the path meets a
// value that is no container.
bool storeAtPath(Value& node, std::span<const std::string> keys, const Value& value) {
  if (node.is_array()) {
    bool stored = true;
    for (Value& element : node) stored = storeAtPath(element, keys, value) && stored;
    return stored;
  }
  if (!node.is_object()) return false;
  if (keys.size() == 1) {
    node[keys.front()] = value;
    return true;
  }
  auto step = node.find(keys.front());
  return step == node.end() || storeAtPath(*step, keys.subspan(1), value);
}

// A bound read as a 32-bit float and counted in steps: bound * kSteps + 0.5, rounded to a 32-bit
// float and then down to a whole number. Nothing for a bound that is not a number or too large.
std::optional<int64_t> scaledBound(const Value& transformation, std::string_view key) {
  const Value* member = BVMember(transformation, key);
  if (!member) return 0;
  std::optional<double> bound = BVNumber(*member);
  if (!bound) return std::nullopt;
  float scaled = std::floor(float(*bound * kSteps + 0.5));
  if (!std::isfinite(scaled) || std::fabs(scaled) > kLargestScaledBound) return std::nullopt;
  return int64_t(scaled);
}

// The new value of a range transformation, or nothing (logged) when its bounds are unusable.
std::optional<Value> valueInRange(const Value& transformation, std::optional<double> position,
                                  BVRandomization* randomization) {
  std::optional<int64_t> lo = scaledBound(transformation, kBVFilterRandomMinimumKey);
  std::optional<int64_t> hi = scaledBound(transformation, kBVFilterRandomMaximumKey);
  if (!lo || !hi) {
    refuse(transformation, "minimum and maximum must be numbers of a sensible size");
    return std::nullopt;
  }
  double steps;
  if (position) {
    // A slider may run from a higher value to a lower one.
    steps = float(*position) * float(*hi - *lo) + float(*lo);
  } else {
    // A random range given the wrong way round is the same range.
    const auto [low, high] = std::minmax(*lo, *hi);
    steps = double(low) + double(BVRandomInt32Uniform(uint32_t(high - low + 1), randomization));
  }
  return Value(steps / kSteps);
}

// The new value of a transformation, or nothing when it has none to give.
std::optional<Value> transformedValue(const Value& transformation, std::optional<double> position,
                                      BVRandomization* randomization) {
  const Value* values = BVMember(transformation, kBVFilterRandomValuesKey);
  if (!values) return valueInRange(transformation, position, randomization);
  if (!values->is_array()) {
    refuse(transformation, "values must be an array");
    return std::nullopt;
  }
  if (values->empty()) return std::nullopt;
  return (*values)[BVRandomInt32Uniform(uint32_t(values->size()), randomization)];
}

}  // namespace

Value BVDictionaryTransformedWithDictionary(const Value& parameters, const Value& transformation,
                                            std::optional<double> value, BVRandomization* randomization) {
  if (!parameters.is_object() || !transformation.is_object()) {
    refuse(transformation, "parameters and transformation must be dictionaries");
    return parameters;
  }
  const Value* path = BVMember(transformation, kBVFilterRandomKeyPathKey);
  std::optional<std::string> keyPath = path ? BVString(*path) : std::nullopt;
  std::optional<std::vector<std::string>> keys = keyPath ? keysOf(*keyPath) : std::nullopt;
  if (!keys) {
    refuse(transformation, "keyPath must be a string of dot-separated keys");
    return parameters;
  }
  std::optional<Value> newValue = transformedValue(transformation, value, randomization);
  if (!newValue) return parameters;
  Value transformed = parameters;
  if (!storeAtPath(transformed, *keys, *newValue)) {
    refuse(transformation, "keyPath passes through a value that is no dictionary");
    return parameters;
  }
  return transformed;
}

BVParameters BVParametersFromDictionary(const Value& dictionary) {
  BVParameters parameters;
  if (!dictionary.is_object()) return parameters;
  for (const auto& [key, value] : dictionary.items()) {
    if (value.is_object()) {
      parameters.emplace(key, value);
    } else if (value.is_boolean()) {
      parameters.emplace(key, value.get<bool>());
    } else if (value.is_number()) {
      parameters.emplace(key, value.get<double>());
    } else if (value.is_string()) {
      parameters.emplace(key, value.get<std::string>());
    } else {
      BVLog("[BVParameters] unable to parse from dictionary: `" + value.dump() + "` (" + value.type_name() +
            " is not valid value");
    }
  }
  return parameters;
}

Value BVDictionaryFromParameters(const BVParameters& parameters) {
  Value dictionary = Value::object();
  for (const auto& [key, value] : parameters) {
    dictionary[key] = std::visit([](const auto& held) { return Value(held); }, value);
  }
  return dictionary;
}

}  // namespace brenvia
