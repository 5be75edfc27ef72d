#pragma once

#include "filter/filter.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterFocusKey = "focus";

// Darkens the picture outside a circle around the centre of the processed area; `focus` is the
// circle's radius as a share of the picture's short side.
class BVVignetteFilter : public BVFilter {
 public:
  // Keys are read as full doubles, and only when they hold numbers: a missing or wrong-typed key
  // keeps the value from before (at first intensity 0 and focus 0.5).
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  // Without the object's address; numbers in their shortest exact form.
  std::string description() const override;
  std::string className() const override { return "BVVignetteFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double intensity() const { return intensity_; }
  void setIntensity(double v) { intensity_ = v; }
  double focus() const { return focus_; }
  void setFocus(double v) { focus_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVVignetteFilter>(); }

 private:
  double intensity_ = 0.0;
  double focus_ = 0.5;
};

}  // namespace brenvia
