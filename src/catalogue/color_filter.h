#pragma once

#include "filter/blend_filter.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterColorRedKey = "colorRed";
inline constexpr std::string_view kBVFilterColorGreenKey = "colorGreen";
inline constexpr std::string_view kBVFilterColorBlueKey = "colorBlue";

// A flat colour laid over the picture with the blend stage's mode, opacity and mask. The colour
// comes from `colorHex` when the recipe has it, otherwise from `colorRed`, `colorGreen` and
// `colorBlue` in 0 to 255.
class BVColorFilter : public BVBlendFilter {
 public:
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Sets up mode, opacity and mask, then fills the clipped area with the opaque colour.
  void applyToCGContext(BVBitmapContext* context) override;
  // Carries the three components, not the hex string.
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVColorFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVBlendFilter", "BVFilter"}; }

  double colorRed() const { return red_; }
  void setColorRed(double v) { red_ = v; }
  double colorGreen() const { return green_; }
  void setColorGreen(double v) { green_ = v; }
  double colorBlue() const { return blue_; }
  void setColorBlue(double v) { blue_ = v; }
  const std::string& colorHex() const { return hex_; }
  // Stores the string and takes the red, green and blue of its colour (not its alpha). An empty
  // string, or one that is no colour (logged), leaves the components as they are.
  void setColorHex(std::string hex);

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVColorFilter>(); }

 private:
  double red_ = 0, green_ = 0, blue_ = 0;
  std::string hex_;
};

}  // namespace brenvia
