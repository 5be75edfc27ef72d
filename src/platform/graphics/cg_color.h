#pragma once

#include "platform/graphics/color_space.h"

#include <memory>
#include <vector>

namespace brenvia {

// A colour: components in its colour space followed by alpha, unpremultiplied.
class CGColor {
 public:
  CGColor(CGColorSpaceRef space, std::vector<double> components)
      : space_(std::move(space)), components_(std::move(components)) {}
  const CGColorSpaceRef& colorSpace() const { return space_; }
  const std::vector<double>& components() const { return components_; }

 private:
  CGColorSpaceRef space_;
  std::vector<double> components_;
};

using CGColorRef = std::shared_ptr<const CGColor>;

// Reads the space's channels and then alpha from `components`; null without a space.
CGColorRef CGColorCreate(const CGColorSpaceRef& space, const double* components);
inline size_t CGColorGetNumberOfComponents(const CGColorRef& c) { return c ? c->components().size() : 0; }
inline const double* CGColorGetComponents(const CGColorRef& c) { return c ? c->components().data() : nullptr; }
inline double CGColorGetAlpha(const CGColorRef& c) { return c ? c->components().back() : 0.0; }
inline CGColorSpaceRef CGColorGetColorSpace(const CGColorRef& c) { return c ? c->colorSpace() : nullptr; }

}  // namespace brenvia
