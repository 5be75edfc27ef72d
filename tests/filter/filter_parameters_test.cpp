#include "filter/filter.h"

#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace brenvia {
namespace {

// The description without the object's address: the class and every setting.
std::string settingsOf(const BVFilter& filter) {
  const std::string text = filter.description();
  return text.substr(text.find(';'));
}

// A recipe entry that gives every number, boolean and string parameter of the class a value other
// than its default.
Value changedRecipe(const BVFilterClass& filterClass) {
  Value recipe = {{"type", filterClass.type}};
  for (const BVParameterInfo& p : filterClass.make()->parameterList()) {
    switch (p.kind) {
      case BVParameterKind::Number:
      case BVParameterKind::Double:
        recipe[p.key] = p.defaultValue.is_number() ? 0.25 + p.defaultValue.get<double>() : 0.5;
        break;
      case BVParameterKind::Byte: recipe[p.key] = 7; break;
      case BVParameterKind::Boolean: recipe[p.key] = !p.defaultValue.get<bool>(); break;
      case BVParameterKind::String: recipe[p.key] = "x"; break;
      default: break;
    }
  }
  return recipe;
}

TEST(FilterParameterTables, EveryClassReadsCopiesAndResetsItsSettings) {
  for (const BVFilterClass* filterClass : BVFilterClasses()) {
    SCOPED_TRACE(filterClass->type);
    test::LogCapture log;
    BVFilterRef blank = BVFilter::filterWithParameters({{"type", filterClass->type}});
    BVFilterRef changed = BVFilter::filterWithParameters(changedRecipe(*filterClass));
    EXPECT_NE(settingsOf(*blank), settingsOf(*changed));
    EXPECT_EQ(settingsOf(*changed->copy()), settingsOf(*changed));
    // A new filter of the recipe starts from the defaults, whatever an earlier one read.
    changed->initWithParameters({{"type", filterClass->type}});
    EXPECT_EQ(settingsOf(*changed), settingsOf(*blank));
    EXPECT_EQ(changed->className(), filterClass->name);
  }
}

TEST(FilterParameterTables, UnusableValuesAreLoggedOnceAndPassedOver) {
  test::LogCapture log;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  auto filter = BVFilter::filterWithParameters({{"type", "vignette"},
                                                {"enabled", "false"},
                                                {"intensity", "0.5"},
                                                {"focus", nan},
                                                {"filterFrequency", " 0 "},
                                                {"opaque", nullptr}});
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_NE(log.lines[0].find("[BVVignetteFilter] The value of `enabled`"), std::string::npos) << log.lines[0];
  EXPECT_NE(log.lines[1].find("`focus` is not a finite number"), std::string::npos) << log.lines[1];
  EXPECT_TRUE(filter->isEnabled());           // passed over: the default stays
  EXPECT_EQ(filter->filterFrequency(), 0.0);  // a number in a string is that number
  EXPECT_NE(settingsOf(*filter).find("intensity: 0.5"), std::string::npos);
  EXPECT_NE(settingsOf(*filter).find("focus: 0.5"), std::string::npos);

  // Preparing for a render reads the recipe again without logging it again.
  log.lines.clear();
  filter->prepareToApply();
  BVFilter::CIFiltersForBVFilters({filter}, {10, 10});
  EXPECT_TRUE(log.lines.empty());
}

TEST(FilterParameterTables, ListingsComeFromTheTables) {
  auto listing = BVFilterClassForType("levels")->make()->parameterList();
  auto inputWhite = std::find_if(listing.begin(), listing.end(), [](const auto& p) { return p.key == "inputWhite"; });
  ASSERT_NE(inputWhite, listing.end());
  EXPECT_EQ(inputWhite->kind, BVParameterKind::Byte);
  EXPECT_EQ(inputWhite->defaultValue, 255);
  EXPECT_EQ(listing.front().key, "enabled");  // the base class's parameters come first
}

}  // namespace
}  // namespace brenvia
