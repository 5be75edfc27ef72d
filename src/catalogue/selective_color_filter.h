#pragma once

#include "filter/filter.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterRedAdjustmentKey = "redAdjustment";
inline constexpr std::string_view kBVFilterGreenAdjustmentKey = "greenAdjustment";
inline constexpr std::string_view kBVFilterBlueAdjustmentKey = "blueAdjustment";
inline constexpr std::string_view kBVFilterYellowAdjustmentKey = "yellowAdjustment";
inline constexpr std::string_view kBVFilterOrangeAdjustmentKey = "orangeAdjustment";
inline constexpr std::string_view kBVFilterPurpleAdjustmentKey = "purpleAdjustment";

// Six colour weights folded into one scale per channel: a mixed colour counts towards each
// primary it contains (yellow fully in red and green, orange fully in red and half in green,
// purple half in red and fully in blue). All six at 1 leave the picture as it is. This scales
// whole channels; it does not pick out hues.
class BVSelectiveColorFilter : public BVFilter {
 public:
  using BVFilter::initWithParameters;
  // Every weight starts at 1; later dictionaries change only the weights they name.
  void initWithParameters(const Value& parameters) override;
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVSelectiveColorFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  double redAdjustment() const { return red_; }
  void setRedAdjustment(double v) { red_ = v; }
  double greenAdjustment() const { return green_; }
  void setGreenAdjustment(double v) { green_ = v; }
  double blueAdjustment() const { return blue_; }
  void setBlueAdjustment(double v) { blue_ = v; }
  double yellowAdjustment() const { return yellow_; }
  void setYellowAdjustment(double v) { yellow_ = v; }
  double orangeAdjustment() const { return orange_; }
  void setOrangeAdjustment(double v) { orange_ = v; }
  double purpleAdjustment() const { return purple_; }
  void setPurpleAdjustment(double v) { purple_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVSelectiveColorFilter>(); }

 private:
  double red_ = 1, green_ = 1, blue_ = 1, yellow_ = 1, orange_ = 1, purple_ = 1;
};

}  // namespace brenvia
