#pragma once

#include "filter/filter.h"

namespace brenvia {

inline constexpr std::string_view kBVFilterLevelsInputBlackKey = "inputBlack";
inline constexpr std::string_view kBVFilterLevelsInputWhiteKey = "inputWhite";
inline constexpr std::string_view kBVFilterLevelsOutputBlackKey = "outputBlack";
inline constexpr std::string_view kBVFilterLevelsOutputWhiteKey = "outputWhite";

// Levels without gamma: the input range is stretched to 0 to 1 and then squeezed into the output
// range, by two colour matrices. The four levels are bytes; a recipe number is taken as a 32-bit
// integer and keeps its low 8 bits (256 is 0, 300 is 44).
class BVLevelsFilter : public BVFilter {
 public:
  using BVFilter::initWithParameters;
  // The two whites start at 255; later dictionaries change only the levels they name.
  void initWithParameters(const Value& parameters) override;
  void setParameters(const Value& parameters) override;
  CIFilterArray CIFiltersForSize(CGSize size) override;
  // Logs that there is no bitmap-context path and draws nothing.
  void applyToCGContext(BVBitmapContext* context) override;
  BVFilterRef copy() const override;
  std::string description() const override;
  std::string className() const override { return "BVLevelsFilter"; }
  std::vector<std::string> superclassNames() const override { return {"BVFilter"}; }

  uint8_t inputBlack() const { return inputBlack_; }
  void setInputBlack(uint8_t v) { inputBlack_ = v; }
  uint8_t inputWhite() const { return inputWhite_; }
  void setInputWhite(uint8_t v) { inputWhite_ = v; }
  uint8_t outputBlack() const { return outputBlack_; }
  void setOutputBlack(uint8_t v) { outputBlack_ = v; }
  uint8_t outputWhite() const { return outputWhite_; }
  void setOutputWhite(uint8_t v) { outputWhite_ = v; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<BVLevelsFilter>(); }

 private:
  uint8_t inputBlack_ = 0, inputWhite_ = 255, outputBlack_ = 0, outputWhite_ = 255;
};

}  // namespace brenvia
