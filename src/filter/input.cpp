#include "filter/input.h"

#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

namespace brenvia {

std::shared_ptr<BVInput> BVInput::initWithSlider(double value) {
  auto input = std::make_shared<BVInput>();
  input->slider = value;
  return input;
}

std::shared_ptr<BVInput> BVInput::initWithRandomization(std::shared_ptr<BVRandomization> randomization) {
  auto input = std::make_shared<BVInput>();
  input->randomization = std::move(randomization);
  return input;
}

void BVInput::setBlurSliderNumber(std::optional<double> number) {
  if (number) blurSlider = double(float(*number));
}

std::optional<BVInputValue> BVInput::otherInputValueForKey(std::string_view key) const {
  if (!otherInput) return std::nullopt;
  auto it = otherInput->find(key);
  if (it == otherInput->end()) return std::nullopt;
  return it->second;
}

void BVInput::setOtherInputFromDictionary(const Value& dictionary) {
  std::map<BVInputKey, BVInputValue, std::less<>> values;
  if (dictionary.is_object()) {
    for (const auto& [key, value] : dictionary.items()) {
      if (value.is_number()) {
        values[key] = value.get<double>();
      } else if (value.is_string()) {
        values[key] = value.get<std::string>();
      } else {
        BVLog("[BVInput] Cannot set `" + key + "` to " + value.dump() + "; value does not conform to `BVInputValue`!");
      }
    }
  }
  otherInput = std::move(values);
}

}  // namespace brenvia
