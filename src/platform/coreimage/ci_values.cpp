#include "platform/coreimage/ci_color.h"
#include "platform/coreimage/ci_vector.h"

#include <charconv>

namespace brenvia {
namespace {

std::string number(double v) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, end);
}

}  // namespace

std::string CIVector::stringRepresentation() const {
  std::string s = "[";
  for (size_t i = 0; i < values_.size(); ++i) s.append(i ? " " : "").append(number(values_[i]));
  return s + "]";
}

CIColor::CIColor(double r, double g, double b, double a, CGColorSpaceRef space)
    : r_(r), g_(g), b_(b), a_(a), space_(space ? std::move(space) : CGColorSpaceCreateDeviceRGB()) {
  if (space_->model() == CGColorSpaceModel::Monochrome) g_ = b_ = r_;
}

CIColor CIColor::colorWithCGColor(const CGColorRef& color) {
  if (!color || color->components().size() < 2) return CIColor();
  const std::vector<double>& c = color->components();
  if (c.size() < 4) return CIColor(c[0], c[0], c[0], c.back(), color->colorSpace());
  return CIColor(c[0], c[1], c[2], c[3], color->colorSpace());
}

std::string CIColor::stringRepresentation() const {
  return number(r_) + " " + number(g_) + " " + number(b_) + " " + number(a_);
}

}  // namespace brenvia
