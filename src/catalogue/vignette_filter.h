#pragma once

#include "catalogue/catalogue_keys.h"
#include "filter/filter_of.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterFocusKey = "focus";

struct BVVignetteSettings {
  double intensity = 0;
  double focus = 0.5;
};

// Darkens the picture outside a circle around the centre of the processed area; `focus` is the
// circle's radius as a share of the picture's short side.
class BVVignetteFilter : public BVFilterOf<BVVignetteFilter, BVFilter, BVVignetteSettings> {
 public:
  static constexpr std::string_view kClassName = "BVVignetteFilter";
  static const BVParameterTable<BVVignetteSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
