#pragma once

#include "platform/coreimage/ci_color.h"
#include "platform/coreimage/ci_vector.h"
#include "platform/geometry/geometry.h"

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace brenvia {

class CIImage;
using CIImageRef = std::shared_ptr<const CIImage>;
using CIData = std::shared_ptr<const std::vector<uint8_t>>;

// The value of one operation input: nothing, a number (booleans and integers read as numbers),
// a string, a vector, a colour, a transform, an image, bytes or a colour space.
class CIValue {
 public:
  CIValue() = default;
  template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
  CIValue(T v) : v_(static_cast<double>(v)) {}
  CIValue(std::string s) : v_(std::move(s)) {}
  CIValue(const char* s) : v_(std::string(s)) {}
  CIValue(CIVector v) : v_(std::move(v)) {}
  CIValue(CIColor c) : v_(std::move(c)) {}
  CIValue(const CGAffineTransform& t) : v_(t) {}
  CIValue(CIImageRef image) : v_(std::move(image)) {}
  CIValue(CIData data) : v_(std::move(data)) {}
  CIValue(CGColorSpaceRef space) : v_(std::move(space)) {}

  bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
  template <class T>
  bool is() const { return std::holds_alternative<T>(v_); }
  template <class T>
  const T* get() const { return std::get_if<T>(&v_); }

  friend bool operator==(const CIValue&, const CIValue&) = default;

 private:
  std::variant<std::monostate, double, std::string, CIVector, CIColor, CGAffineTransform, CIImageRef, CIData,
               CGColorSpaceRef>
      v_;
};

}  // namespace brenvia
