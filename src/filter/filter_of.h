#pragma once

#include "filter/filter.h"

#include <type_traits>

namespace brenvia {

// A settings record for classes that add no parameters of their own.
struct BVNoSettings {};

// The class `Self`, derived from `Base`, with the recipe parameters declared by its settings record `S` and its table
// `Self::parameterTable()`. From those alone it resets, reads, copies, describes and lists the settings, and it answers
// the class name (`Self::kClassName`), the ancestors' names and blank objects of its class.
template <class Self, class Base, class S = BVNoSettings>
class BVFilterOf : public Base {
 public:
  using Settings = S;

  std::string className() const override { return std::string(Self::kClassName); }
  std::vector<std::string> superclassNames() const override { return ancestorNames(); }
  static std::vector<std::string> ancestorNames() {
    std::vector<std::string> names = Base::ancestorNames();
    names.insert(names.begin(), std::string(Base::kClassName));
    return names;
  }

  const S& settings() const { return settings_; }
  S& settings() { return settings_; }

 protected:
  BVFilterRef makeBlank() const override { return std::make_shared<Self>(); }
  void resetSettings() override {
    Base::resetSettings();
    settings_ = S{};
  }
  void readParameters(const Value& parameters, const BVParameterReader& reader) override {
    Base::readParameters(parameters, reader);
    if constexpr (!std::is_same_v<S, BVNoSettings>)
      BVReadParameters(Self::parameterTable(), settings_, parameters, reader);
  }
  void copySettingsTo(BVFilter& other) const override {
    Base::copySettingsTo(other);
    static_cast<BVFilterOf&>(other).settings_ = settings_;
  }
  void describeSettings(std::string& text) const override {
    Base::describeSettings(text);
    if constexpr (!std::is_same_v<S, BVNoSettings>) BVDescribeParameters(Self::parameterTable(), settings_, text);
  }
  void listParameters(std::vector<BVParameterInfo>& list) const override {
    Base::listParameters(list);
    if constexpr (!std::is_same_v<S, BVNoSettings>) BVListParameters(Self::parameterTable(), list);
  }

 private:
  S settings_;
};

}  // namespace brenvia
