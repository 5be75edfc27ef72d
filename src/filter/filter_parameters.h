#pragma once

#include "platform/foundation/value.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace brenvia {

// How a recipe value becomes a setting.
enum class BVParameterKind {
  Number,  // a number read as a 32-bit float and widened (the library's number
           // rule)
  Double,  // a number at full double precision
  Byte,    // a number taken as a 32-bit integer of which the low 8 bits are kept
           // (256 is 0)
  Boolean,
  String,
  Array,       // read by the class's own code
  Dictionary,  // read by the class's own code
};

// When a key is read: every time the dictionary is read, a missing or unusable value giving the default; or only when
// present, the setting otherwise keeping its value.
enum class BVParameterRead { Always, WhenPresent };

// The useful range of a number, for listings and sliders; values outside it are still taken.
struct BVParameterRange {
  double minimum, maximum;
};

// A parameter as users see it in listings.
struct BVParameterInfo {
  std::string key;
  BVParameterKind kind;
  Value defaultValue;  // null when the parameter has no default
  std::optional<BVParameterRange> range;
  std::string doc;
};

std::string_view BVParameterKindName(BVParameterKind kind);

// Who reads a dictionary, for the one line logged per unusable value; a silent reader logs nothing (a dictionary read
// again for each render has had its values reported once already).
struct BVParameterReader {
  std::string className;
  bool reportsUnusableValues = true;
};

// Typed reads of one recipe value. A number may also be given as a string holding just a number. Nothing comes back for
// a value of another type or a number that is not finite; a reporting reader logs such a value once, with the key and
// the filter class.
std::optional<double> BVReadNumber(const Value& value, BVParameterKind kind, std::string_view key,
                                   const BVParameterReader& reader);
std::optional<bool> BVReadBoolean(const Value& value, std::string_view key, const BVParameterReader& reader);
std::optional<std::string> BVReadString(const Value& value, std::string_view key, const BVParameterReader& reader);
// Logs that a value is of the wrong type for the key (when the reader reports).
void BVReportUnusableValue(const Value& value, std::string_view expected, std::string_view key,
                           const BVParameterReader& reader);

// A number in its shortest exact text form.
std::string BVShortestNumberText(double x);

// One row of a filter class's parameter table: the recipe key, the member of the class's settings record it fills, how
// it is read, and a line of documentation. The default is the member's initialiser in the settings record.
template <class S>
struct BVParameter {
  // No member for the structured values that the class reads itself.
  using Field = std::variant<std::monostate, double S::*, std::optional<double> S::*, uint8_t S::*, bool S::*,
                             std::optional<std::string> S::*>;

  BVParameter(std::string_view k, double S::*f, std::string_view d, std::optional<BVParameterRange> r = std::nullopt,
              BVParameterRead when = BVParameterRead::WhenPresent, BVParameterKind how = BVParameterKind::Number)
      : key(k), field(f), kind(how), read(when), range(r), doc(d) {}
  BVParameter(std::string_view k, std::optional<double> S::*f, std::string_view d,
              std::optional<BVParameterRange> r = std::nullopt)
      : key(k), field(f), kind(BVParameterKind::Number), read(BVParameterRead::Always), range(r), doc(d) {}
  BVParameter(std::string_view k, uint8_t S::*f, std::string_view d)
      : key(k),
        field(f),
        kind(BVParameterKind::Byte),
        read(BVParameterRead::WhenPresent),
        range(BVParameterRange{0, 255}),
        doc(d) {}
  BVParameter(std::string_view k, bool S::*f, std::string_view d, BVParameterRead when = BVParameterRead::Always)
      : key(k), field(f), kind(BVParameterKind::Boolean), read(when), doc(d) {}
  BVParameter(std::string_view k, std::optional<std::string> S::*f, std::string_view d)
      : key(k), field(f), kind(BVParameterKind::String), read(BVParameterRead::Always), doc(d) {}
  BVParameter(std::string_view k, BVParameterKind structured, std::string_view d)
      : key(k), kind(structured), read(BVParameterRead::Always), doc(d) {}

  std::string_view key;
  Field field;
  BVParameterKind kind;
  BVParameterRead read;
  std::optional<BVParameterRange> range;
  std::string_view doc;
};

template <class S>
using BVParameterTable = std::vector<BVParameter<S>>;

namespace detail {

inline std::optional<double> readField(const Value& v, const BVParameterKind kind, std::string_view key,
                                       const BVParameterReader& reader, double*) {
  return BVReadNumber(v, kind, key, reader);
}
inline std::optional<double> readField(const Value& v, const BVParameterKind kind, std::string_view key,
                                       const BVParameterReader& reader, std::optional<double>*) {
  return BVReadNumber(v, kind, key, reader);
}
std::optional<uint8_t> readField(const Value& v, BVParameterKind kind, std::string_view key,
                                 const BVParameterReader& reader, uint8_t*);
inline std::optional<bool> readField(const Value& v, BVParameterKind, std::string_view key,
                                     const BVParameterReader& reader, bool*) {
  return BVReadBoolean(v, key, reader);
}
inline std::optional<std::string> readField(const Value& v, BVParameterKind, std::string_view key,
                                            const BVParameterReader& reader, std::optional<std::string>*) {
  return BVReadString(v, key, reader);
}

inline Value valueOf(std::monostate) { return Value(); }
Value valueOf(double x);
Value valueOf(const std::optional<double>& x);
Value valueOf(uint8_t x);
Value valueOf(bool x);
Value valueOf(const std::optional<std::string>& x);

}  // namespace detail

// Reads every parameter of the table that the dictionary names (and resets the always-read ones it does not) into the
// settings record.
template <class S>
void BVReadParameters(const BVParameterTable<S>& table, S& settings, const Value& parameters,
                      const BVParameterReader& reader) {
  static const S defaults{};
  for (const BVParameter<S>& parameter : table) {
    const Value* member = BVMember(parameters, parameter.key);
    std::visit(
        [&](auto field) {
          if constexpr (!std::is_same_v<decltype(field), std::monostate>) {
            auto read = member ? detail::readField(*member, parameter.kind, parameter.key, reader, &(settings.*field))
                               : std::nullopt;
            if (read) {
              settings.*field = std::move(*read);
            } else if (parameter.read == BVParameterRead::Always) {
              settings.*field = defaults.*field;
            }
          }
        },
        parameter.field);
  }
}

// "key: value" for each parameter, joined by ", ".
template <class S>
void BVDescribeParameters(const BVParameterTable<S>& table, const S& settings, std::string& text) {
  for (const BVParameter<S>& parameter : table) {
    std::visit(
        [&](auto field) {
          if constexpr (!std::is_same_v<decltype(field), std::monostate>) {
            if (!text.empty()) text += ", ";
            text.append(parameter.key).append(": ").append(detail::valueOf(settings.*field).dump());
          }
        },
        parameter.field);
  }
}

template <class S>
void BVListParameters(const BVParameterTable<S>& table, std::vector<BVParameterInfo>& list) {
  static const S defaults{};
  for (const BVParameter<S>& parameter : table) {
    Value fallback;
    std::visit(
        [&](auto field) {
          if constexpr (!std::is_same_v<decltype(field), std::monostate>) fallback = detail::valueOf(defaults.*field);
        },
        parameter.field);
    list.push_back({std::string(parameter.key), parameter.kind, std::move(fallback), parameter.range,
                    std::string(parameter.doc)});
  }
}

}  // namespace brenvia
