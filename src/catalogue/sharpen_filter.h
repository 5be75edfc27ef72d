#pragma once

#include "filter/filter.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterSharpnessKey = "sharpness";

// Sharpens the luminance only, so edges gain contrast without colour fringes.
class BVSharpenFilter : public BVFilter {
 public:
  // `sharpness` is read every time; a missing one is 0.
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVSharpenFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double sharpness() const { return sharpness_; }
  void setSharpness(double v) { sharpness_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVSharpenFilter>(); }

 private:
  double sharpness_ = 0;
};

}  // namespace brenvia
