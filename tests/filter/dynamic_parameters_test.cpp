#include "filter/dynamic_parameters.h"
#include "filter/filter.h"
#include "filter/randomization.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

Value transformed(const Value& parameters, const Value& transformation, std::optional<double> slider = std::nullopt,
                  BVRandomization* randomization = nullptr) {
  return BVDictionaryTransformedWithDictionary(parameters, transformation, slider, randomization);
}

TEST(Transformation, SliderPositionsScaleTheRange) {
  Value parameters = {{"alpha", 1.0}, {"type", "image"}};
  Value range = {{"keyPath", "alpha"}, {"minimum", 0}, {"maximum", 1}};
  EXPECT_EQ(transformed(parameters, range, 0.5)["alpha"], 0.5);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "alpha"}, {"minimum", 0.25}, {"maximum", 0.75}}, 1.0)["alpha"], 0.75);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "added"}, {"maximum", 2}}, 0.5)["added"], 1.0);
  EXPECT_EQ(parameters["alpha"], 1.0);
}

TEST(Transformation, RandomRangesDrawWholeStepsWithBothEndsIncluded) {
  BVRandomization randomization;
  randomization.setStoredRandomizationValues({{"10001-general", 2500}});
  Value range = {{"keyPath", "alpha"}, {"minimum", 0}, {"maximum", 1}};
  EXPECT_EQ(transformed(Value::object(), range, std::nullopt, &randomization)["alpha"], 0.25);
  EXPECT_EQ(transformed(Value::object(), {{"keyPath", "alpha"}, {"minimum", 0.3}, {"maximum", 0.3}}, std::nullopt,
                        &randomization)["alpha"], 0.3);
  EXPECT_EQ(randomization.storedRandomizationValues().at("1-general"), 0u);

  // At class level each draw is new, and every result is a step of 0.0001 inside the range.
  std::set<double> seen;
  for (int i = 0; i < 50; ++i) {
    double drawn = transformed(Value::object(), {{"keyPath", "x"}, {"minimum", -0.5}, {"maximum", 0.5}})["x"];
    EXPECT_GE(drawn, -0.5);
    EXPECT_LE(drawn, 0.5);
    EXPECT_NEAR(drawn * 10000, std::round(drawn * 10000), 1e-6);
    seen.insert(drawn);
  }
  EXPECT_GT(seen.size(), 1u);
}

TEST(Transformation, ValuesArePickedByDrawAndIgnoreTheSlider) {
  BVRandomization randomization;
  randomization.setStoredRandomizationValues({{"3-general", 2}});
  Value pick = {{"keyPath", "blend"}, {"values", {"multiply", "screen", {{"mode", "overlay"}}}}};
  EXPECT_EQ(transformed(Value::object(), pick, 0.0, &randomization)["blend"], Value({{"mode", "overlay"}}));
  Value parameters = {{"blend", "normal"}};
  EXPECT_EQ(transformed(parameters, {{"keyPath", "blend"}, {"values", Value::array()}}, std::nullopt, &randomization),
            parameters);
}

TEST(Transformation, KeyPathsStepIntoNestedDictionariesAndArrays) {
  Value parameters = {{"mask", {{"center", {{"x", 0}}}}}, {"layers", {{{"alpha", 0}}, {{"alpha", 0}}}}};
  Value nested = transformed(parameters, {{"keyPath", "mask.center.x"}, {"maximum", 1}}, 1.0);
  EXPECT_EQ(nested["mask"]["center"]["x"], 1.0);
  Value each = transformed(parameters, {{"keyPath", "layers.alpha"}, {"maximum", 1}}, 1.0);
  EXPECT_EQ(each["layers"], Value({{{"alpha", 1.0}}, {{"alpha", 1.0}}}));
  test::LogCapture log;
  EXPECT_EQ(transformed(parameters, {{"keyPath", "missing.x"}, {"maximum", 1}}, 1.0), parameters);
  EXPECT_TRUE(log.lines.empty());
}

TEST(Transformation, MalformedTransformationsAreLoggedAndChangeNothing) {
  Value parameters = {{"alpha", 0.5}, {"mask", {{"size", 3}}}, {"list", {1, {{"a", 1}}}}};
  const Value bad[] = {
      {{"keyPath", 3}, {"maximum", 1}},
      {{"minimum", 0}, {"maximum", 1}},
      {{"keyPath", "mask..size"}, {"maximum", 1}},
      {{"keyPath", "alpha.deeper"}, {"maximum", 1}},
      {{"keyPath", "list.a"}, {"maximum", 1}},
      {{"keyPath", "alpha"}, {"minimum", "low"}, {"maximum", 1}},
      {{"keyPath", "alpha"}, {"maximum", 1e30}},
      {{"keyPath", "alpha"}, {"values", "one"}},
      Value::array({{{"keyPath", "alpha"}}}),
  };
  for (const Value& transformation : bad) {
    test::LogCapture log;
    EXPECT_EQ(transformed(parameters, transformation, 0.5), parameters) << transformation;
    ASSERT_EQ(log.lines.size(), 1u) << transformation;
    EXPECT_EQ(log.lines[0].rfind("[BVTransforms] Unable to apply ", 0), 0u);
  }
}

TEST(TypedParameters, OnlyParameterValuesPass) {
  test::LogCapture log;
  BVParameters typed = BVParametersFromDictionary(
      {{"on", true}, {"alpha", 0.5}, {"mode", "deep"}, {"mask", {{"a", {1, 2}}}}, {"points", {1, 2}}, {"none", nullptr}});
  EXPECT_EQ(log.lines, (std::vector<std::string>{
                           "[BVParameters] unable to parse from dictionary: `null` (null is not valid value",
                           "[BVParameters] unable to parse from dictionary: `[1,2]` (array is not valid value"}));
  EXPECT_EQ(std::get<std::string>(typed.at("mode")), BVParameterStringValue::deep);
  EXPECT_EQ(BVDictionaryFromParameters(typed),
            Value({{"on", true}, {"alpha", 0.5}, {"mode", "deep"}, {"mask", {{"a", {1, 2}}}}}));
}

class PrepareToApply : public ::testing::Test {
 protected:
  // An adjustment filter from the recipe, run by a processor with the given input.
  BVFilterRef filterRunWith(const Value& recipe, std::shared_ptr<BVInput> input) {
    BVFilterRef filter = BVFilter::filterWithParameters(recipe);
    processor_ = BVImageProcessor::initWithFilters({filter}, BVImageProcessorOptions{.input = std::move(input)});
    filter->setProcessor(processor_);
    return filter;
  }
  std::shared_ptr<BVImageProcessor> processor_;
};

TEST_F(PrepareToApply, RandomThenSliderEachPass) {
  Value recipe = {{"type", "adjustment"},
                  {"exposure", 0},
                  {"contrast", 1},
                  {"random", {{{"keyPath", "exposure"}, {"minimum", -1}, {"maximum", 1}},
                              {{"keyPath", "contrast"}, {"minimum", 2}, {"maximum", 2}}}},
                  {"sliderInput", {{"keyPath", "exposure"}, {"minimum", 0}, {"maximum", 0.5}}}};
  auto input = BVInput::initWithRandomization(std::make_shared<BVRandomization>());
  input->slider = 0.5;
  BVFilterRef filter = filterRunWith(recipe, input);
  filter->prepareToApply();
  EXPECT_EQ(filter->parameters()["exposure"], 0.25);  // the slider overrides the random value
  EXPECT_EQ(filter->parameters()["contrast"], 2.0);
  EXPECT_TRUE(filter->parameters().contains("random") && filter->parameters().contains("sliderInput"));

  // Without a slider the random value stays, and the stored draw repeats it on every pass.
  input->slider.reset();
  filter->prepareToApply();
  Value first = filter->parameters()["exposure"];
  filter->prepareToApply();
  EXPECT_EQ(filter->parameters()["exposure"], first);
}

TEST_F(PrepareToApply, SliderArraysMoveEveryEntryAndNeedAnInput) {
  Value recipe = {{"type", "adjustment"},
                  {"exposure", 0.125},
                  {"sliderInput", {{{"keyPath", "exposure"}, {"maximum", 1}}, {{"keyPath", "saturation"}, {"maximum", 2}}}}};
  BVFilterRef still = filterRunWith(recipe, nullptr);
  still->prepareToApply();
  EXPECT_EQ(still->parameters(), recipe);

  BVFilterRef moved = filterRunWith(recipe, BVInput::initWithSlider(1.0));
  moved->prepareToApply();
  EXPECT_EQ(moved->parameters()["exposure"], 1.0);
  EXPECT_EQ(moved->parameters()["saturation"], 2.0);

  test::LogCapture log;
  BVFilterRef wrong = filterRunWith({{"type", "adjustment"}, {"exposure", 0.125}, {"sliderInput", 4}},
                                    BVInput::initWithSlider(1.0));
  wrong->prepareToApply();
  EXPECT_EQ(wrong->parameters()["exposure"], 0.125);
  EXPECT_EQ(log.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia
