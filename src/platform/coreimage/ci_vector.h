#pragma once

#include "platform/geometry/geometry.h"

#include <initializer_list>
#include <string>
#include <vector>

namespace brenvia {

// A plain list of doubles used for operation inputs; missing components read 0.
class CIVector {
 public:
  CIVector() = default;
  CIVector(std::initializer_list<double> values) : values_(values) {}
  explicit CIVector(std::vector<double> values) : values_(std::move(values)) {}

  static CIVector vectorWithX(double x) { return {x}; }
  static CIVector vectorWithXY(double x, double y) { return {x, y}; }
  static CIVector vectorWithXYZW(double x, double y, double z, double w) { return {x, y, z, w}; }
  static CIVector vectorWithValues(const double* values, size_t count) {
    return CIVector(std::vector<double>(values, values + count));
  }
  static CIVector vectorWithCGRect(const CGRect& r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }
  static CIVector vectorWithCGPoint(CGPoint p) { return {p.x, p.y}; }

  size_t count() const { return values_.size(); }
  double valueAtIndex(size_t i) const { return i < values_.size() ? values_[i] : 0.0; }
  double X() const { return valueAtIndex(0); }
  double Y() const { return valueAtIndex(1); }
  double Z() const { return valueAtIndex(2); }
  double W() const { return valueAtIndex(3); }
  CGRect CGRectValue() const { return CGRectMake(X(), Y(), Z(), W()); }
  CGPoint CGPointValue() const { return {X(), Y()}; }
  const std::vector<double>& values() const { return values_; }
  // "[x y z]" as the attribute listings print vectors.
  std::string stringRepresentation() const;

  friend bool operator==(const CIVector&, const CIVector&) = default;

 private:
  std::vector<double> values_;
};

}  // namespace brenvia
