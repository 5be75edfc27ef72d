#pragma once

#include "filter/blend_filter.h"

#include <array>

namespace brenvia {

inline constexpr std::string_view kBVFilterColorRedKey = "colorRed";
inline constexpr std::string_view kBVFilterColorGreenKey = "colorGreen";
inline constexpr std::string_view kBVFilterColorBlueKey = "colorBlue";

struct BVColorSettings {
  std::optional<std::string> colorHex;
  double colorRed = 0, colorGreen = 0, colorBlue = 0;
};

// A flat colour laid over the picture with the blend stage's mode, opacity and mask. The colour comes from `colorHex`
// when the recipe has that key, otherwise from `colorRed`, `colorGreen` and `colorBlue` in 0 to 255.
class BVColorFilter : public BVFilterOf<BVColorFilter, BVBlendFilter, BVColorSettings> {
 public:
  static constexpr std::string_view kClassName = "BVColorFilter";
  static const BVParameterTable<BVColorSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Sets up mode, opacity and mask, then fills the clipped area with the opaque colour.
  void applyToCGContext(BVBitmapContext* context) override;

  // Red, green and blue from 0 to 1 (the hex colour's alpha plays no part).
  std::array<double, 3> components() const;

 protected:
  // Logs a `colorHex` that is no colour.
  void readParameters(const Value& parameters, const BVParameterReader& reader) override;
};

}  // namespace brenvia
