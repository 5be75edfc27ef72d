#pragma once

#include "filter/blend_filter.h"
#include "masks/gradient.h"

#include <map>

namespace brenvia {

// The gradient filter reads its one structured key itself.
struct BVGradientSettings {};

// Lays a gradient over the picture with the blend stage's mode, opacity and mask. On the engine road
// the gradient is drawn once per size, with all its stops, at the filter's opacity.
class BVGradientFilter : public BVFilterOf<BVGradientFilter, BVBlendFilter, BVGradientSettings> {
 public:
  static constexpr std::string_view kClassName = "BVGradientFilter";
  static const BVParameterTable<BVGradientSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Sets up mode, opacity and mask, then draws the gradient over the clipped area.
  void applyToCGContext(BVBitmapContext* context) override;

  const std::shared_ptr<BVGradient>& gradient() const { return gradient_; }

 protected:
  // Builds the gradient and forgets the pictures drawn of the one before.
  void readParameters(const Value& parameters, const BVParameterReader& reader) override;
  void copySettingsTo(BVFilter& other) const override;

 private:
  std::shared_ptr<BVGradient> gradient_;
  std::map<std::string, CIImageRef> cachedGradientImages_;
};

}  // namespace brenvia
