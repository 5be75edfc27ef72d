#include "filter/input.h"

#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

TEST(BVInputRecord, SliderNumbersAndCopies) {
  BVInput input;
  EXPECT_EQ(BVInput::initWithSlider(0.3)->sliderNumber(), 0.3);

  input.setBlurSliderNumber(0.1);
  EXPECT_EQ(input.blurSliderNumber(), double(0.1f));
  input.setBlurSliderNumber(std::nullopt);
  EXPECT_EQ(input.blurSliderNumber(), double(0.1f));

  input.disableTags = std::vector<std::string>{"grain"};
  input.alphaSliders = std::map<std::string, double>{{"texture", 0.5}};
  auto copy = input.copy();
  input.disableTags->push_back("frame");
  EXPECT_EQ(copy->disableTags, std::vector<std::string>{"grain"});
  EXPECT_EQ(copy->alphaSliders->at("texture"), 0.5);
  EXPECT_EQ(copy->blurSliderNumber(), double(0.1f));
}

TEST(BVInputRecord, OtherInputTakesOnlyInputValues) {
  BVInput input;
  EXPECT_FALSE(input.otherInputValueForKey(BVInputLocationName));
  input.setOtherInputFromDictionary({{"imageGrainZoom", 2}, {"stale", "x"}});

  test::LogCapture log;
  input.setOtherInputFromDictionary({{"locationName", "Quay"}, {"imageGrainZoom", 1.5}, {"faces", {1, 2}}});
  EXPECT_EQ(log.lines.size(), 1u);  // for the list
  EXPECT_EQ(input.otherInputValueForKey(BVInputLocationName), BVInputValue(std::string("Quay")));
  EXPECT_EQ(input.otherInputValueForKey(BVInputImageGrainZoom), BVInputValue(1.5));
  EXPECT_FALSE(input.otherInputValueForKey("stale"));
  EXPECT_FALSE(input.otherInputValueForKey("faces"));
}

}  // namespace
}  // namespace brenvia
