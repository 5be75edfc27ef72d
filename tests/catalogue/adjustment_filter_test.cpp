#include "catalogue/adjustment_filter.h"

#include "platform/coreimage/ci_filter.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

std::shared_ptr<BVAdjustmentFilter> adjustment(Value parameters) {
  parameters["type"] = "adjustment";
  return std::dynamic_pointer_cast<BVAdjustmentFilter>(BVFilter::filterWithParameters(parameters));
}

std::vector<std::string> namesOf(const CIFilterArray& chain) {
  std::vector<std::string> names;
  for (const auto& op : chain) names.push_back(op->name());
  return names;
}

using Names = std::vector<std::string>;

double numberOf(const std::shared_ptr<CIFilter>& op, std::string_view key) {
  const CIValue value = op->valueForKey(key);  // kept alive: get() points into it
  const double* number = value.get<double>();
  return number ? *number : std::nan("");
}

TEST(AdjustmentFilter, DefaultsGiveAnEmptyChain) {
  auto filter = adjustment(Value::object());
  ASSERT_TRUE(filter);
  EXPECT_TRUE(filter->CIFiltersForSize({100, 100}).empty());
  EXPECT_TRUE(BVFilter::filter<BVAdjustmentFilter>()->CIFiltersForSize({1, 1}).empty());
}

TEST(AdjustmentFilter, SaturationGoesToVibranceOrToColourControls) {
  auto vibranceAndContrast = adjustment({{"saturation", 0.5}, {"useVibrance", true}, {"contrast", 1.2}});
  CIFilterArray chain = vibranceAndContrast->CIFiltersForSize({100, 100});
  ASSERT_EQ(namesOf(chain), (Names{"CIVibrance", "CIColorControls"}));
  EXPECT_EQ(numberOf(chain[0], "inputAmount"), 0.5);
  EXPECT_EQ(numberOf(chain[1], "inputContrast"), double(1.2f));

  EXPECT_EQ(namesOf(adjustment({{"saturation", 0.5}, {"useVibrance", true}})->CIFiltersForSize({1, 1})),
            Names{"CIVibrance"});

  chain = adjustment({{"saturation", 0.5}, {"brightness", -0.25}})->CIFiltersForSize({1, 1});
  ASSERT_EQ(namesOf(chain), Names{"CIColorControls"});
  EXPECT_EQ(numberOf(chain[0], "inputSaturation"), 0.5);
  EXPECT_EQ(numberOf(chain[0], "inputBrightness"), -0.25);
}

TEST(AdjustmentFilter, EveryStepInItsOrderWithItsInputs) {
  auto filter = adjustment({{"saturation", 0},
                            {"hue", 0.5},
                            {"gamma", 1.5},
                            {"exposure", -1},
                            {"highlights", 0.5},
                            {"temperature", 5000},
                            {"thresholdMin", 0.25},
                            {"thresholdMax", 0.5}});
  CIFilterArray chain = filter->CIFiltersForSize({100, 100});
  ASSERT_EQ(namesOf(chain), (Names{"CIColorControls", "CIHueAdjust", "CIGammaAdjust", "CIExposureAdjust",
                                   "CIHighlightShadowAdjust", "CITemperatureAndTint", "BVThresholdCIFilter"}));
  EXPECT_EQ(numberOf(chain[3], "inputEV"), -1.0);
  EXPECT_EQ(chain[5]->valueForKey("inputNeutral"), CIValue(CIVector({5000, 0})));
  EXPECT_EQ(numberOf(chain[6], "inputEdge0"), 0.25);
  EXPECT_EQ(numberOf(chain[6], "inputEdge1"), 0.5);
  for (const auto& op : chain) EXPECT_TRUE(op->valueForKey("inputImage").isNull()) << op->name();
}

TEST(AdjustmentFilter, WrongTypedValuesArePassedOver) {
  test::LogCapture log;
  auto filters = BVFilter::filtersWithArray(Value::array({{{"type", "adjustment"},
                                                           {"exposure", "bright"},
                                                           {"contrast", {1.2}},
                                                           {"saturation", nullptr},
                                                           {"enabled", "yes"},
                                                           {"brightness", 0.1}},
                                                          42,
                                                          {{"type", 5}}}));
  ASSERT_EQ(filters.size(), 1u);
  EXPECT_TRUE(filters[0]->isEnabled());
  EXPECT_EQ(namesOf(filters[0]->CIFiltersForSize({10, 10})), (Names{"CIColorControls"}));
  // One line for each unusable value (a null counts as missing), one for the entry that is no dictionary and one for
  // the unknown type.
  EXPECT_EQ(log.lines.size(), 5u);
}

TEST(AdjustmentFilter, DefaultsAreComparedExactly) {
  EXPECT_TRUE(adjustment({{"gamma", 0.75}})->CIFiltersForSize({1, 1}).empty());
  auto gammaOne = adjustment({{"gamma", 1.0}})->CIFiltersForSize({1, 1});
  ASSERT_EQ(namesOf(gammaOne), Names{"CIGammaAdjust"});
  EXPECT_EQ(numberOf(gammaOne[0], "inputPower"), 1.0);

  auto shadows = adjustment({{"shadows", 0.4}})->CIFiltersForSize({1, 1});
  ASSERT_EQ(namesOf(shadows), Names{"CIHighlightShadowAdjust"});
  EXPECT_EQ(numberOf(shadows[0], "inputHighlightAmount"), 1.0);
  EXPECT_EQ(numberOf(shadows[0], "inputShadowAmount"), double(0.4f));

  // Saturation at 1 with vibrance asked for is no step at all.
  EXPECT_TRUE(adjustment({{"saturation", 1}, {"useVibrance", true}})->CIFiltersForSize({1, 1}).empty());
}

TEST(AdjustmentFilter, LaterParametersKeepEarlierValuesExceptVibrance) {
  auto filter = adjustment({{"saturation", 0.5}, {"useVibrance", true}, {"gamma", 1}});
  filter->setParameters({{"exposure", 1}});
  EXPECT_FALSE(filter->settings().useVibrance);
  EXPECT_EQ(namesOf(filter->CIFiltersForSize({1, 1})), (Names{"CIColorControls", "CIGammaAdjust", "CIExposureAdjust"}));
}

TEST(AdjustmentFilter, BitmapContextPathOnlyLogs) {
  test::LogCapture log;
  EXPECT_NO_THROW(adjustment({{"saturation", 0.5}})->applyToCGContext(nullptr));
  EXPECT_EQ(log.lines.size(), 1u);
}

CIImageRef applyChain(CIImageRef image, const CIFilterArray& chain) {
  for (const auto& op : chain) {
    op->setValue(image, "inputImage");
    image = op->outputImage();
  }
  return image;
}

TEST(AdjustmentFilter, ChainChangesThePictureAsTheValuesSay) {
  auto source = CIImage::imageWithCGImage(test::solidBitmap(2, 2, {50, 100, 20, 255}));
  const CGRect rect = CGRectMake(0, 0, 2, 2);
  auto plain = test::renderFloat(source, rect);

  auto brighter = test::renderFloat(applyChain(source, adjustment({{"exposure", 1}})->CIFiltersForSize({2, 2})), rect);
  for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(brighter[size_t(c)], 2 * plain[size_t(c)]);
  EXPECT_FLOAT_EQ(brighter[3], 1.0f);

  auto grey = test::renderFloat(
      applyChain(source, adjustment({{"saturation", 0}, {"exposure", -1}})->CIFiltersForSize({2, 2})), rect);
  EXPECT_NEAR(grey[0], grey[1], 1e-5);
  EXPECT_NEAR(grey[1], grey[2], 1e-5);
  EXPECT_LT(grey[0], plain[1]);

  // Edges at the picture's own luma split it into black below and white above.
  auto thresholded = test::renderFloat(
      applyChain(source, adjustment({{"thresholdMin", 0.9}, {"thresholdMax", 0.95}})->CIFiltersForSize({2, 2})), rect);
  EXPECT_EQ(thresholded[0], 0.0f);
  EXPECT_EQ(thresholded[3], 1.0f);
}

}  // namespace
}  // namespace brenvia
