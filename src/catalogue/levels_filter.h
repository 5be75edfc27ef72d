#pragma once

#include "filter/filter_of.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterLevelsInputBlackKey = "inputBlack";
inline constexpr std::string_view kBVFilterLevelsInputWhiteKey = "inputWhite";
inline constexpr std::string_view kBVFilterLevelsOutputBlackKey = "outputBlack";
inline constexpr std::string_view kBVFilterLevelsOutputWhiteKey = "outputWhite";

struct BVLevelsSettings {
  uint8_t inputBlack = 0, inputWhite = 255, outputBlack = 0, outputWhite = 255;
};

// Levels without gamma: the input range is stretched to 0 to 1 and then squeezed into the output range, by two colour
// matrices.
class BVLevelsFilter : public BVFilterOf<BVLevelsFilter, BVFilter, BVLevelsSettings> {
 public:
  static constexpr std::string_view kClassName = "BVLevelsFilter";
  static const BVParameterTable<BVLevelsSettings>& parameterTable();

  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
};

}  // namespace brenvia
