#include "filter/filter.h"

#include "catalogue/adjustment_filter.h"
#include "filter/input.h"
#include "filter/processing.h"
#include "platform/coreimage/ci_filter.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

// A processor as a filter sees it, with only an input.
class InputOnlyProcessing : public BVProcessing {
 public:
  explicit InputOnlyProcessing(std::shared_ptr<BVInput> input) : input_(std::move(input)) {}
  std::shared_ptr<CIContext> context() const override { return nullptr; }
  std::shared_ptr<BVInput> input() const override { return input_; }
  Value output() const override { return Value(); }
  CGRect processingRect() const override { return CGRectZero; }
  std::vector<std::shared_ptr<BVFilter>> filters() const override { return {}; }

 private:
  std::shared_ptr<BVInput> input_;
};

std::shared_ptr<BVProcessing> processingWithDisabledTags(std::vector<std::string> tags) {
  auto input = std::make_shared<BVInput>();
  input->disableTags = std::move(tags);
  return std::make_shared<InputOnlyProcessing>(input);
}

// Records what the filter knew while its parameters were being read, and counts prepareToApply.
class ProbeFilter : public BVFilter {
 public:
  void readParameters(const Value& parameters, const BVParameterReader& reader) override {
    BVFilter::readParameters(parameters, reader);
    pathDuringSetParameters = imageSearchPath();
    tagsDuringSetParameters = tags();
  }
  void prepareToApply() override { ++prepared; }
  void clearProcessingCaches() override { ++cleared; }
  uint64_t processingCachesByteSize() const override { return 100; }

  std::optional<std::string> pathDuringSetParameters;
  std::vector<std::string> tagsDuringSetParameters;
  int prepared = 0;
  int cleared = 0;
};

using Tags = std::vector<std::string>;

TEST(FilterFactory, BuildsKnownTypesAndLogsTheOthers) {
  EXPECT_EQ(BVFilterClassForType("nonsense"), nullptr);
  test::LogCapture log;
  Value recipe = Value::array({{{"type", "adjustment"}, {"exposure", 1}},
                               {{"type", "nonsense"}},
                               {{"enabled", true}},
                               {{"type", "adjustment"}, {"gamma", 1}}});
  BVFilterArray filters = BVFilter::filtersWithArray(recipe, std::string("/pictures"), std::string("fx"));
  ASSERT_EQ(filters.size(), 2u);
  auto first = std::dynamic_pointer_cast<BVAdjustmentFilter>(filters[0]);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->settings().exposure, 1.0);
  EXPECT_EQ(first->imageSearchPath(), "/pictures");
  EXPECT_EQ(first->imagePrefix(), "fx");
  EXPECT_EQ(std::dynamic_pointer_cast<BVAdjustmentFilter>(filters[1])->settings().gamma, 1.0);
  EXPECT_EQ(log.lines.size(), 2u);

  log.lines.clear();
  EXPECT_EQ(BVFilter::filterWithParameters({{"type", "colour"}}), nullptr);
  EXPECT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(BVFilter::filtersWithArray(Value("adjustment")).empty());

  // A hostile entry nested far too deep is passed over without copying it level by level.
  Value deep = 1;
  for (int i = 0; i < 100000; ++i) deep = Value::array({std::move(deep)});
  log.lines.clear();
  EXPECT_EQ(BVFilter::filterWithParameters({{"type", "adjustment"}, {"exposure", std::move(deep)}}), nullptr);
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(FilterConstruction, PathPrefixAndGroupTagsArriveAfterTheFirstSetParameters) {
  auto filter = std::make_shared<ProbeFilter>();
  filter->initWithParameters({{"tags", {"grain"}}}, std::string("/pictures"), std::string("p"), Tags{"group"});
  EXPECT_FALSE(filter->pathDuringSetParameters);
  EXPECT_EQ(filter->tagsDuringSetParameters, Tags{"grain"});
  EXPECT_EQ(filter->imageSearchPath(), "/pictures");
  EXPECT_EQ(filter->tags(), (Tags{"group", "grain"}));

  // Later recipe tags are stored behind the group tags; an empty list keeps what was there.
  filter->setParameters({{"tags", {"frame"}}});
  EXPECT_EQ(filter->tags(), (Tags{"group", "group", "frame"}));
  filter->setParameters({{"tags", Value::array()}});
  EXPECT_EQ(filter->tags(), (Tags{"group", "group", "frame"}));
  filter->setParameters(Value::object());
  EXPECT_EQ(filter->tags(), (Tags{"group", "group", "frame"}));
}

TEST(FilterParameters, EveryFieldIsDerivedAgainFromEachDictionary) {
  auto filter = BVFilter::filter();
  filter->setParameters(
      {{"enabled", false}, {"opaque", true}, {"filterFrequency", 0.1}, {"optionalDuringLivePreview", true}});
  EXPECT_FALSE(filter->isEnabled());
  EXPECT_TRUE(filter->isOpaque());
  EXPECT_EQ(filter->filterFrequency(), double(0.1f));
  EXPECT_TRUE(filter->optionalDuringLivePreview());

  filter->setParameters({{"other", 1}});
  EXPECT_TRUE(filter->isEnabled());
  EXPECT_FALSE(filter->isOpaque());
  EXPECT_EQ(filter->filterFrequency(), 1.0);
  EXPECT_FALSE(filter->optionalDuringLivePreview());
  EXPECT_EQ(filter->parameters(), Value({{"other", 1}}));
}

TEST(FilterEnabling, DisabledTagsOfTheRunningProcessorTurnFiltersOff) {
  auto off = BVFilter::filterWithParameters({{"type", "adjustment"}, {"enabled", false}});
  EXPECT_FALSE(off->isEnabled());

  auto filter = BVFilter::filterWithParameters({{"type", "adjustment"}, {"tags", {"grain"}}}, std::nullopt,
                                               std::nullopt, Tags{"texture"});
  for (auto [tags, enabled] : {std::pair{Tags{"grain"}, false}, {Tags{"texture"}, false}, {Tags{"frame"}, true}}) {
    auto running = processingWithDisabledTags(tags);
    filter->setProcessor(running);
    EXPECT_EQ(filter->isEnabled(), enabled) << tags[0];
  }
  auto otherOff = processingWithDisabledTags({"frame"});
  off->setProcessor(otherOff);
  EXPECT_FALSE(off->isEnabled());
  auto grainOff = processingWithDisabledTags({"grain"});

  // The processor is held weakly: once it is gone the filter answers without it.
  filter->setProcessor(grainOff);
  grainOff.reset();
  EXPECT_EQ(filter->processor(), nullptr);
  EXPECT_TRUE(filter->isEnabled());
}

TEST(FilterApplying, SkippedOperationsAreStillPreparedAndTheBaseCannotDraw) {
  auto probe = std::make_shared<ProbeFilter>();
  probe->initWithParameters({{"skipCIFilter", true}});
  EXPECT_TRUE(BVFilter::CIFiltersForBVFilters({probe}, {100, 100}).empty());
  EXPECT_EQ(probe->prepared, 1);
  EXPECT_FALSE(probe->supportsCIFilter());
  probe->setParameters(Value::object());
  EXPECT_TRUE(probe->supportsCIFilter());
  EXPECT_THROW(probe->applyToCGContext(nullptr), BVFilterNotSupportedException);
}

TEST(FilterArrays, ClassOperationsVisitEveryFilter) {
  BVFilterArray filters =
      BVFilter::filtersWithArray(Value::array({{{"type", "adjustment"}, {"exposure", 1}},
                                               {{"type", "adjustment"}},
                                               {{"type", "adjustment"}, {"gamma", 2}, {"enabled", false}}}));
  CIFilterArray operations = BVFilter::CIFiltersForBVFilters(filters, {10, 10});
  ASSERT_EQ(operations.size(), 2u);
  EXPECT_EQ(operations[0]->name(), "CIExposureAdjust");
  EXPECT_EQ(operations[1]->name(), "CIGammaAdjust");

  auto a = std::make_shared<ProbeFilter>(), b = std::make_shared<ProbeFilter>();
  BVFilterArray probes{a, nullptr, b};
  BVFilter::clearProcessingCachesForFilters(probes);
  EXPECT_EQ(a->cleared + b->cleared, 2);
  EXPECT_EQ(BVFilter::processingCachesByteSizeForFilters(probes), 200u);
}

TEST(FilterGeometry, AbsoluteCentreScalesByTheCentre) {
  CGPoint p = BVFilter::absoluteCenterPointInRect(CGRectMake(10, 20, 100, 50), {0.5, -1});
  EXPECT_EQ(p.x, 90.0);
  EXPECT_EQ(p.y, 0.0);
}

TEST(FilterTransitions, TimingAndValuesComeFromTheParameters) {
  auto filter = BVFilter::filter();
  filter->setParameters({{"transitionTimingStart", 0.2},
                         {"transitionTimingEnd", 0.6},
                         {"transitionKeyPath", "radius"},
                         {"transitionMinimumValue", 3},
                         {"transitionMaximumValue", 9}});
  EXPECT_EQ(filter->transitionTimingMiddle(), (double(0.2f) + double(0.6f)) * 0.5);
  EXPECT_EQ(filter->transitionKeyPath(), "radius");

  filter->setParameters({{"transitionTimingMiddle", 0.3}, {"transitionStaticValue", 4}, {"transitionMinimumValue", 3}});
  EXPECT_EQ(filter->transitionTimingMiddle(), double(0.3f));
  EXPECT_EQ(filter->transitionMinimumValue(), 4.0);
  EXPECT_EQ(filter->transitionMaximumValue(), 4.0);
}

TEST(FilterCopying, CopyKeepsRecipeAndEnabledStateButNotTheProcessor) {
  auto source = BVFilter::filterWithParameters({{"type", "adjustment"}, {"tags", {"grain"}}, {"exposure", 0.5}},
                                               std::string("/pictures"), std::string("p"), Tags{"group"});
  auto running = processingWithDisabledTags({"grain"});
  source->setProcessor(running);

  BVFilterRef copy = source->copy();
  auto adjustment = std::dynamic_pointer_cast<BVAdjustmentFilter>(copy);
  ASSERT_TRUE(adjustment);
  EXPECT_EQ(copy->processor(), nullptr);
  EXPECT_FALSE(copy->isEnabled());  // copied while the processor disabled its tag
  EXPECT_EQ(copy->parameters(), source->parameters());
  EXPECT_EQ(copy->imageSearchPath(), "/pictures");
  EXPECT_EQ(copy->tags(), (Tags{"group", "grain", "grain"}));

  copy->setParameters({{"exposure", 2}});
  EXPECT_EQ(source->parameters()["exposure"], 0.5);
}

TEST(FilterCoding, KeyedArchiveRoundTripRebuildsTheFilter) {
  BVFilter::registerCodingClasses();
  auto source = BVFilter::filterWithParameters({{"type", "adjustment"}, {"saturation", 0.25}, {"tags", {"frame"}}},
                                               std::string("/pictures"), std::string("p"), Tags{"group"});
  std::vector<uint8_t> data = BVKeyedArchiver::archivedData(*source);
  auto decoded = BVKeyedUnarchiver::unarchivedObjectOfClass<BVAdjustmentFilter>(data.data(), data.size());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->parameters(), source->parameters());
  EXPECT_EQ(decoded->imageSearchPath(), "/pictures");
  EXPECT_EQ(decoded->settings().saturation, 0.25);
  EXPECT_EQ(decoded->tags(), Tags{"frame"});  // group tags are not stored

  data = BVKeyedArchiver::archivedData(*BVFilter::filter());
  auto plain = BVKeyedUnarchiver::unarchivedObjectOfClass<BVFilter>(data.data(), data.size());
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->className(), "BVFilter");
  EXPECT_FALSE(plain->imageSearchPath() || plain->imagePrefix());
}

}  // namespace
}  // namespace brenvia
