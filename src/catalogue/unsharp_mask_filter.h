#pragma once

#include "catalogue/catalogue_keys.h"
#include "filter/filter_of.h"

namespace brenvia {

struct BVUnsharpMaskSettings {
  double radius = 0;
  double intensity = 0;
};

// Unsharp masking of all channels. The recipe's radius is measured on a picture whose short side
// is 640 pixels and grows with the picture, so a look sharpens alike at every size.
class BVUnsharpMaskFilter : public BVFilterOf<BVUnsharpMaskFilter, BVFilter, BVUnsharpMaskSettings> {
 public:
  static constexpr std::string_view kClassName = "BVUnsharpMaskFilter";
  static const BVParameterTable<BVUnsharpMaskSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
