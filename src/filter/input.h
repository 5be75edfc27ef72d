#pragma once

#include "platform/foundation/value.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brenvia {

// Names of the inputs a run can hand to particular filters.
using BVInputKey = std::string;
inline constexpr std::string_view BVInputImageGrainZoom = "imageGrainZoom";
inline constexpr std::string_view BVInputTintypeEyeIntensity = "tintypeEyeIntensity";
inline constexpr std::string_view BVInputTintypePreferredMask = "tintypePreferredMask";
inline constexpr std::string_view BVInputLocationName = "locationName";
inline constexpr std::string_view BVInputDate = "date";
inline constexpr std::string_view BVInputDisparityMaskFocus = "disparityMaskFocus";

// Keys for user texts of text overlays; published for callers only.
inline constexpr std::string_view kBVUserInfoKeyTitle = "_TITLE";
inline constexpr std::string_view kBVUserInfoKeySubTitle = "_SUBTITLE";

// Values of BVInputTintypePreferredMask.
using BVInputStringValue = std::string;
inline constexpr std::string_view BVInputTintypeMaskDefault = "default";
inline constexpr std::string_view BVInputTintypeMaskEmbeddedDepth = "depth";

using BVDate = std::chrono::system_clock::time_point;
// A value of `otherInput`: a number, a string or a date.
using BVInputValue = std::variant<double, std::string, BVDate>;

using BVFilterTag = std::string;

class BVRandomization;

// The user inputs of one processing run.
class BVInput {
 public:
  BVInput() = default;
  static std::shared_ptr<BVInput> initWithSlider(double slider);
  static std::shared_ptr<BVInput> initWithRandomization(std::shared_ptr<BVRandomization> randomization);

  // `slider` as a number; nothing when there is none.
  std::optional<double> sliderNumber() const { return slider; }
  std::optional<double> blurSliderNumber() const { return blurSlider; }
  // Reads the number as a 32-bit float; nothing leaves the field unchanged.
  void setBlurSliderNumber(std::optional<double> number);

  // The value under key, or nothing when there is no `otherInput` or no such key.
  std::optional<BVInputValue> otherInputValueForKey(std::string_view key) const;
  // Replaces `otherInput` by the entries of a dictionary whose values are numbers or strings;
  // other values are logged and left out.
  void setOtherInputFromDictionary(const Value& dictionary);

  // A new input with all fields of this one; the randomization is shared, not copied.
  std::shared_ptr<BVInput> copy() const { return std::make_shared<BVInput>(*this); }

  std::optional<double> slider;
  std::optional<double> blurSlider;
  double blurSliderMinMultiplier = 0.25;
  double blurSliderMaxMultiplier = 1.75;
  std::optional<std::map<BVFilterTag, double>> alphaSliders;
  std::optional<std::vector<BVFilterTag>> disableTags;
  // Stored draws that the run must repeat (and that new draws are added to).
  std::shared_ptr<BVRandomization> randomization;
  std::optional<std::map<BVInputKey, BVInputValue, std::less<>>> otherInput;
};

}  // namespace brenvia
