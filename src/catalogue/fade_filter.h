#pragma once

#include "filter/filter.h"

namespace brenvia {

// A washed-out look: every colour component is clamped into [m, 1 - m] with m = intensity / 2,
// so 1 turns the picture mid grey. The result is always opaque.
class BVFadeFilter : public BVFilter {
 public:
  // `intensity` is read every time; a missing one is 0.
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVFadeFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double intensity() const { return intensity_; }
  void setIntensity(double v) { intensity_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVFadeFilter>(); }

 private:
  double intensity_ = 0;
};

}  // namespace brenvia
