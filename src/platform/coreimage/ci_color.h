#pragma once

#include "platform/graphics/cg_color.h"
#include "platform/graphics/color_space.h"

#include <string>

namespace brenvia {

// An unpremultiplied colour with its own colour space (sRGB unless stated).
class CIColor {
 public:
  CIColor() = default;
  CIColor(double r, double g, double b, double a = 1.0, CGColorSpaceRef space = nullptr);

  static CIColor colorWithRed(double r, double g, double b, double a = 1.0) { return CIColor(r, g, b, a); }
  // The drawing colour's components and alpha in its space; a grey colour has its grey on all
  // three channels. Null gives transparent black.
  static CIColor colorWithCGColor(const CGColorRef& color);

  double red() const { return r_; }
  double green() const { return g_; }
  double blue() const { return b_; }
  double alpha() const { return a_; }
  // Never null: colours without a stated space are sRGB.
  const CGColorSpaceRef& colorSpace() const { return space_; }
  std::string stringRepresentation() const;

  friend bool operator==(const CIColor& x, const CIColor& y) {
    return x.r_ == y.r_ && x.g_ == y.g_ && x.b_ == y.b_ && x.a_ == y.a_ && x.space_ == y.space_;
  }

 private:
  double r_ = 0, g_ = 0, b_ = 0, a_ = 0;
  CGColorSpaceRef space_;
};

}  // namespace brenvia
