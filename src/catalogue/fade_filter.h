#pragma once

#include "catalogue/catalogue_keys.h"
#include "filter/filter_of.h"

namespace brenvia {

struct BVFadeSettings {
  double intensity = 0;
};

// A washed-out look: every colour component is clamped into [m, 1 - m] with m = intensity / 2,
// so 1 turns the picture mid grey. The result is always opaque.
class BVFadeFilter : public BVFilterOf<BVFadeFilter, BVFilter, BVFadeSettings> {
 public:
  static constexpr std::string_view kClassName = "BVFadeFilter";
  static const BVParameterTable<BVFadeSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
