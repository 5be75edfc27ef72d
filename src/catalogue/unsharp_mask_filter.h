#pragma once

#include "filter/filter.h"

namespace brenvia {

// Unsharp masking of all channels. The recipe's radius is measured on a picture whose short side
// is 640 pixels and grows with the picture, so a look sharpens alike at every size.
class BVUnsharpMaskFilter : public BVFilter {
 public:
  // `radius` and `intensity` are read every time; missing ones are 0.
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVUnsharpMaskFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double radius() const { return radius_; }
  void setRadius(double v) { radius_ = v; }
  double intensity() const { return intensity_; }
  void setIntensity(double v) { intensity_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVUnsharpMaskFilter>(); }

 private:
  double _proportionalRadiusForSize(CGSize size) const;

  double radius_ = 0;
  double intensity_ = 0;
};

}  // namespace brenvia
