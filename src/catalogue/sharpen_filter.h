#pragma once

#include "filter/filter_of.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterSharpnessKey = "sharpness";

struct BVSharpenSettings {
  double sharpness = 0;
};

// Sharpens the luminance only, so edges gain contrast without colour fringes.
class BVSharpenFilter : public BVFilterOf<BVSharpenFilter, BVFilter, BVSharpenSettings> {
 public:
  static constexpr std::string_view kClassName = "BVSharpenFilter";
  static const BVParameterTable<BVSharpenSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
