#include "filter/dynamic_parameters.h"
#include "filter/filter.h"
#include "filter/randomization.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace brenvia {
namespace {

Value transformed(const Value& parameters, const Value& transformation, std::optional<double> slider = std::nullopt,
                  BVRandomization* randomization = nullptr) {
  return BVDictionaryTransformedWithDictionary(parameters, transformation, slider, randomization);
}

TEST(Transformation, SlidersScaleRangesAndDrawsPickSteps) {
  Value parameters = {{"alpha", 1.0}};
  EXPECT_EQ(transformed(parameters, {{"keyPath", "alpha"}, {"minimum", 0.25}, {"maximum", 0.75}}, 1.0)["alpha"], 0.75);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "added"}, {"maximum", 2}}, 0.5)["added"], 1.0);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "alpha"}, {"minimum", 1}, {"maximum", 0}}, 0.25)["alpha"], 0.75);
  EXPECT_EQ(parameters, Value({{"alpha", 1.0}}));

  BVRandomization randomization;
  randomization.setStoredRandomizationValues({{"10001-general", 2500}, {"3-general", 2}});
  EXPECT_EQ(transformed(parameters, {{"keyPath", "alpha"}, {"maximum", 1}}, std::nullopt, &randomization)["alpha"],
            0.25);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "alpha"}, {"minimum", 0.3}, {"maximum", 0.3}}, std::nullopt,
                        &randomization)["alpha"],
            0.3);
  EXPECT_EQ(randomization.storedRandomizationValues().at("1-general"), 0u);
  // With values one of them is drawn, whatever the slider says; no values change nothing.
  Value pick = {{"keyPath", "blend"}, {"values", {"multiply", "screen", {{"mode", "overlay"}}}}};
  EXPECT_EQ(transformed(parameters, pick, 0.0, &randomization)["blend"], Value({{"mode", "overlay"}}));
  EXPECT_EQ(transformed(parameters, {{"keyPath", "blend"}, {"values", Value::array()}}, std::nullopt, &randomization),
            parameters);

  // Class-level draws are new each time, inside the range with both ends, in steps of 0.0001.
  std::set<double> seen;
  for (int i = 0; i < 20; ++i) {
    // A range given the wrong way round is the same range; a slider may run downwards.
    const Value bounds =
        i % 2 ? Value{{"minimum", -0.5}, {"maximum", 0.5}} : Value{{"minimum", 0.5}, {"maximum", -0.5}};
    Value transformation = {{"keyPath", "x"}};
    transformation.update(bounds);
    double drawn = transformed(parameters, transformation)["x"];
    EXPECT_TRUE(drawn >= -0.5 && drawn <= 0.5 && std::abs(drawn * 1e4 - std::round(drawn * 1e4)) < 1e-6) << drawn;
    seen.insert(drawn);
  }
  EXPECT_GT(seen.size(), 1u);
}

TEST(Transformation, KeyPathsStepIntoNestedDictionariesAndArrays) {
  Value parameters = {{"mask", {{"center", {{"x", 0}}}}}, {"layers", {{{"alpha", 0}}, {{"alpha", 0}}}}};
  EXPECT_EQ(transformed(parameters, {{"keyPath", "mask.center.x"}, {"maximum", 1}}, 1.0)["mask"]["center"]["x"], 1.0);
  EXPECT_EQ(transformed(parameters, {{"keyPath", "layers.alpha"}, {"maximum", 1}}, 1.0)["layers"],
            Value({{{"alpha", 1.0}}, {{"alpha", 1.0}}}));
  test::LogCapture log;
  EXPECT_EQ(transformed(parameters, {{"keyPath", "missing.x"}, {"maximum", 1}}, 1.0), parameters);
  EXPECT_TRUE(log.lines.empty());
}

TEST(Transformation, MalformedTransformationsAreLoggedAndChangeNothing) {
  Value parameters = {{"alpha", 0.5}, {"mask", {{"size", 3}}}, {"list", {1, {{"a", 1}}}}};
  const Value bad[] = {
      {{"keyPath", 3}, {"maximum", 1}},
      {{"keyPath", "mask..size"}, {"maximum", 1}},
      {{"keyPath", "alpha.deeper"}, {"maximum", 1}},
      {{"keyPath", "list.a"}, {"maximum", 1}},
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
  BVParameters typed = BVParametersFromDictionary({{"on", true},
                                                   {"alpha", 0.5},
                                                   {"mode", "deep"},
                                                   {"mask", {{"a", {1, 2}}}},
                                                   {"points", {1, 2}},
                                                   {"none", nullptr}});
  EXPECT_EQ(log.lines.size(), 2u);  // the null and the array
  EXPECT_EQ(std::get<std::string>(typed.at("mode")), BVParameterStringValue::deep);
  EXPECT_EQ(BVDictionaryFromParameters(typed),
            Value({{"on", true}, {"alpha", 0.5}, {"mode", "deep"}, {"mask", {{"a", {1, 2}}}}}));
}

// An adjustment filter from the recipe, prepared by a processor with the given input.
Value preparedParameters(const Value& recipe, std::shared_ptr<BVInput> input, int passes = 1) {
  BVFilterRef filter = BVFilter::filterWithParameters(recipe);
  auto processor = BVImageProcessor::initWithFilters({filter}, BVImageProcessorOptions{.input = std::move(input)});
  filter->setProcessor(processor);
  for (int i = 0; i < passes; ++i) filter->prepareToApply();
  EXPECT_EQ(filter->parameters(), recipe);  // the recipe itself stays as it was given
  return filter->preparedParameters();
}

TEST(PrepareToApply, RandomValuesThenSlidersOnEveryPass) {
  Value recipe = {
      {"type", "adjustment"},
      {"exposure", 0},
      {"random",
       {{{"keyPath", "exposure"}, {"minimum", -1}, {"maximum", 1}},
        {{"keyPath", "contrast"}, {"minimum", 2}, {"maximum", 2}}}},
      {"sliderInput", {{{"keyPath", "exposure"}, {"maximum", 0.5}}, {{"keyPath", "saturation"}, {"maximum", 2}}}}};
  auto input = BVInput::initWithRandomization(std::make_shared<BVRandomization>());
  input->slider = 0.5;
  Value prepared = preparedParameters(recipe, input);
  EXPECT_EQ(prepared["exposure"], 0.25);  // the slider overrides the random value
  EXPECT_EQ(prepared["saturation"], 1.0);
  EXPECT_EQ(prepared["contrast"], 2.0);
  EXPECT_EQ(prepared["random"], recipe["random"]);

  // Without a slider the random value stays, and stored draws repeat it on every pass.
  input->slider.reset();
  Value once = preparedParameters(recipe, input);
  EXPECT_EQ(preparedParameters(recipe, input, 3)["exposure"], once["exposure"]);
  EXPECT_EQ(preparedParameters(recipe, nullptr)["saturation"], nullptr);
}

// Large enough that two independent draws are equal once in a billion.
constexpr uint32_t kWide = 1'000'000'000;

// A filter draws on its run's stored randomization, which ignores the pause, or else at class level.
TEST(FilterDraws, UnderTheContextOfTheirRun) {
  auto context = std::make_shared<int>(0);
  auto input = BVInput::initWithRandomization(std::make_shared<BVRandomization>());
  auto processor = BVImageProcessor::initWithFilters({}, BVImageProcessorOptions{.input = input});
  processor->process(BVImage::initWithCGImage(test::solidBitmap(2, 2, {9, 9, 9, 255})), context);
  auto filter = BVFilter::filter();
  filter->setProcessor(processor);
  BVRandomization::pauseRandomizingInContext({});
  uint32_t drawn = filter->randomInt32Uniform(kWide);
  EXPECT_EQ(filter->randomInt32Uniform(kWide), drawn);
  EXPECT_EQ(input->randomization->storedRandomizationValues(),
            (BVRandomizationValues{{BVRandomizationDrawKey(kWide, context.get()), drawn}}));
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());

  input->randomization = nullptr;
  EXPECT_EQ(filter->randomInt32Uniform(kWide), BVRandomization::classRandomInt32Uniform(kWide, context.get()));
  BVRandomization::resumeRandomizingInContext({});
}

TEST(FilterDraws, FrequencyComparesWithADrawBelowOneHundred) {
  auto randomization = std::make_shared<BVRandomization>();
  auto processor = BVImageProcessor::initWithFilters(
      {}, BVImageProcessorOptions{.input = BVInput::initWithRandomization(randomization)});
  auto filter = BVFilter::filter();
  filter->setProcessor(processor);
  EXPECT_TRUE(filter->shouldApply());
  EXPECT_TRUE(randomization->isEmpty());  // frequency 1 draws nothing

  auto appliesWith = [&](double frequency, uint32_t draw) {
    randomization->setStoredRandomizationValues({{"100-general", draw}});
    filter->setParameters({{"filterFrequency", frequency}});
    return filter->shouldApply();
  };
  EXPECT_FALSE(appliesWith(0.0, 99));
  EXPECT_TRUE(appliesWith(0.25, 75));
  EXPECT_FALSE(appliesWith(0.25, 74));
  EXPECT_TRUE(appliesWith(1.5, 0));

  // Without stored draws a frequency in between sometimes applies and sometimes not.
  auto free = BVFilter::filter();
  free->setParameters({{"filterFrequency", 0.5}});
  std::set<bool> answers;
  for (int i = 0; i < 60 && answers.size() < 2; ++i) answers.insert(free->shouldApply());
  EXPECT_EQ(answers.size(), 2u);
}

}  // namespace
}  // namespace brenvia
