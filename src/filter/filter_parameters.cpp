#include "filter/filter_parameters.h"

#include "platform/foundation/log.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace brenvia {
namespace {

// The number a string holds as a whole (blanks around it allowed), or nothing.
std::optional<double> numberInString(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double x = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), x);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return x;
}

void report(const BVParameterReader& reader, std::string_view key, std::string_view problem) {
  if (!reader.reportsUnusableValues) return;
  std::string line(1, '[');
  line.append(reader.className).append("] The value of `").append(key).append("` ").append(problem);
  line.append("; it is passed over.");
  BVLog(line);
}

}  // namespace

std::string_view BVParameterKindName(BVParameterKind kind) {
  switch (kind) {
    case BVParameterKind::Number: return "number";
    case BVParameterKind::Double: return "number";
    case BVParameterKind::Byte: return "byte";
    case BVParameterKind::Boolean: return "boolean";
    case BVParameterKind::String: return "string";
    case BVParameterKind::Array: return "array";
    case BVParameterKind::Dictionary: return "dictionary";
  }
  return "value";
}

void BVReportUnusableValue(const Value& value, std::string_view expected, std::string_view key,
                           const BVParameterReader& reader) {
  std::string problem = "should be ";
  problem.append(expected).append(", not ").append(value.dump());
  report(reader, key, problem);
}

std::optional<double> BVReadNumber(const Value& value, BVParameterKind kind, std::string_view key,
                                   const BVParameterReader& reader) {
  if (value.is_null()) return std::nullopt;
  std::optional<double> number = BVDouble(value);
  if (!number && value.is_string()) number = numberInString(value.get_ref<const std::string&>());
  if (!number) {
    BVReportUnusableValue(value, "a number", key, reader);
    return std::nullopt;
  }
  if (!std::isfinite(*number)) {
    report(reader, key, "is not a finite number");
    return std::nullopt;
  }
  return kind == BVParameterKind::Double ? *number : double(float(*number));
}

std::optional<bool> BVReadBoolean(const Value& value, std::string_view key, const BVParameterReader& reader) {
  if (value.is_null()) return std::nullopt;
  std::optional<bool> flag = BVBool(value);
  if (!flag) BVReportUnusableValue(value, "true or false", key, reader);
  return flag;
}

std::optional<std::string> BVReadString(const Value& value, std::string_view key, const BVParameterReader& reader) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_null()) BVReportUnusableValue(value, "a string", key, reader);
  return std::nullopt;
}

std::string BVShortestNumberText(double x) {
  char buffer[32];
  auto end = std::to_chars(buffer, buffer + sizeof buffer, x).ptr;
  return std::string(buffer, end);
}

namespace detail {

std::optional<uint8_t> readField(const Value& v, BVParameterKind kind, std::string_view key,
                                 const BVParameterReader& reader, uint8_t*) {
  std::optional<double> number = BVReadNumber(v, BVParameterKind::Double, key, reader);
  if (!number) return std::nullopt;
  const double whole = std::trunc(std::clamp(*number, -2147483648.0, 2147483647.0));
  return uint8_t(uint32_t(int32_t(whole)));
}

Value valueOf(double x) { return x; }
Value valueOf(const std::optional<double>& x) { return x ? Value(*x) : Value(); }
Value valueOf(uint8_t x) { return int(x); }
Value valueOf(bool x) { return x; }
Value valueOf(const std::optional<std::string>& x) { return x ? Value(*x) : Value(); }

}  // namespace detail
}  // namespace brenvia
