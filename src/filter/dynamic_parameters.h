#pragma once

#include "platform/foundation/value.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace brenvia {

class BVRandomization;

// Keys of a transformation dictionary, found in a recipe under `random` (an array of them) or
// `sliderInput` (one or an array).
inline constexpr std::string_view kBVFilterRandomKeyPathKey = "keyPath";
inline constexpr std::string_view kBVFilterRandomMinimumKey = "minimum";
inline constexpr std::string_view kBVFilterRandomMaximumKey = "maximum";
inline constexpr std::string_view kBVFilterRandomValuesKey = "values";
inline constexpr std::string_view kBVFilterSliderKeyPathKey = "keyPath";
inline constexpr std::string_view kBVFilterSliderMinimumKey = "minimum";
inline constexpr std::string_view kBVFilterSliderMaximumKey = "maximum";

// Keys of a ramp dictionary, found under `ramp`.
inline constexpr std::string_view kBVFilterRampKeyPathKey = "keyPath";
inline constexpr std::string_view kBVFilterRampMinimumValueKey = "minimumValue";
inline constexpr std::string_view kBVFilterRampMaximumValueKey = "maximumValue";
inline constexpr std::string_view kBVFilterRampFrequencyKey = "frequency";

using BVParameterKey = std::string;

// A string value with a fixed vocabulary.
struct BVParameterStringValue : std::string {
  using std::string::string;
  static constexpr std::string_view deep = "deep";
  static constexpr std::string_view average = "average";
  static constexpr std::string_view shallow = "shallow";
  static constexpr std::string_view face = "face";
  static constexpr std::string_view eyes = "eyes";
  static constexpr std::string_view center = "center";
  static constexpr std::string_view disparity = "disparity";
  static constexpr std::string_view portraitMatte = "portraitMatte";
};

// What a typed parameter dictionary holds: a boolean, a number, a string, or a nested dictionary
// (kept as it is).
using BVParameterValue = std::variant<bool, double, std::string, Value>;
using BVParameters = std::map<BVParameterKey, BVParameterValue, std::less<>>;

// The typed view of a parameter dictionary. Entries of another kind (arrays, null) are logged and
// left out.
BVParameters BVParametersFromDictionary(const Value& dictionary);
// The plain dictionary of typed parameters.
Value BVDictionaryFromParameters(const BVParameters& parameters);

// A copy of parameters with the value at the transformation's `keyPath` replaced:
// - with `values`, by one of them, drawn on the randomization or, without one, at class level;
// - else, with a value (a slider position), by minimum + value * (maximum - minimum);
// - else by a random number from minimum to maximum, both included, in steps of 0.0001.
// The key path steps through nested dictionaries at its dots (an array on the way passes the rest
// on to each element); a step that is missing changes nothing. A transformation, key path or
// bound of the wrong kind, or a path through a value that is no container, is logged and changes
// nothing. The parameters themselves stay as they are.
Value BVDictionaryTransformedWithDictionary(const Value& parameters, const Value& transformation,
                                            std::optional<double> value, BVRandomization* randomization);

}  // namespace brenvia
