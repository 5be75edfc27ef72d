#include "catalogue/color_filter.h"
#include "catalogue/fade_filter.h"
#include "catalogue/levels_filter.h"
#include "catalogue/selective_color_filter.h"
#include "catalogue/unsharp_mask_filter.h"
#include "catalogue/vignette_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace brenvia {
namespace {

// Gives the filter a processor that processes `rect`; the caller keeps it alive.
std::shared_ptr<BVImageProcessor> processing(const BVFilterRef& filter, CGRect rect) {
  auto processor = BVImageProcessor::initWithFilters({filter});
  processor->setProcessingRect(rect);
  filter->setProcessor(processor);
  return processor;
}

template <class T = BVFilter>
std::shared_ptr<T> make(const std::string& type, Value parameters = Value::object()) {
  parameters["type"] = type;
  return std::dynamic_pointer_cast<T>(BVFilter::filterWithParameters(parameters));
}

CIValue input(const std::shared_ptr<CIFilter>& op, std::string_view key) { return op->valueForKey(key); }

// The one operation a filter gives at a size.
std::shared_ptr<CIFilter> onlyOperation(const BVFilterRef& filter, CGSize size = {640, 480}) {
  CIFilterArray operations = filter->CIFiltersForSize(size);
  EXPECT_EQ(operations.size(), 1u);
  return operations.empty() ? CIFilter::filterWithName("CIColorInvert") : operations.front();
}

double byte(int level) { return double(float(level) / 255.0f); }

TEST(ColorFilter, HexWinsOverComponentsAndUnusableValuesAreLoggedOnce) {
  struct Case {
    Value parameters;
    double r, g, b;
    size_t logged;
  };
  const std::vector<Case> cases = {
      {{{"colorRed", 255}, {"colorGreen", 128}}, 1.0, byte(128), 0.0, 0},
      {{{"colorHex", "#336699cc"}, {"colorRed", 255}}, byte(0x33), byte(0x66), byte(0x99), 0},
      {{{"colorHex", 7}, {"colorBlue", 51}, {"colorRed", "red"}}, 0.0, 0.0, byte(51), 2},
      {{{"colorHex", ""}, {"colorRed", 255}}, 0.0, 0.0, 0.0, 0},
      {{{"colorHex", "#12345"}}, 0.0, 0.0, 0.0, 1}};
  for (const Case& c : cases) {
    test::LogCapture log;
    auto filter = make<BVColorFilter>("color", c.parameters);
    EXPECT_EQ(filter->components(), (std::array{c.r, c.g, c.b})) << c.parameters;
    EXPECT_EQ(log.lines.size(), c.logged) << c.parameters;
  }
}

TEST(ColorFilter, ColourLayerCoversTheProcessedArea) {
  auto filter = make<BVColorFilter>("color", {{"colorHex", "#336699"}, {"alpha", 0.5}, {"mode", "Multiply"}});
  auto processor = processing(filter, CGRectMake(10, 20, 4, 3));
  auto blend = onlyOperation(filter, {4, 3});
  EXPECT_EQ(blend->name(), "CIMultiplyBlendMode");
  const CIImageRef layer = *input(blend, kCIInputImageKey).get<CIImageRef>();
  EXPECT_TRUE(CGRectEqualToRect(layer->extent(), CGRectMake(10, 20, 4, 3)));

  auto alternate = make("color", {{"colorHex", "#fff"}, {"alternateCIFilters", {{{"name", "CIColorInvert"}}}}});
  EXPECT_TRUE(input(onlyOperation(alternate), kCIInputImageKey).isNull());
}

TEST(LevelsFilter, LevelsAreLowBytesOfWholeNumbers) {
  const std::vector<std::pair<Value, int>> cases = {{300, 44}, {-1, 255}, {99.9, 99}, {1e12, 255}};
  for (const auto& [given, expected] : cases) {
    EXPECT_EQ(make<BVLevelsFilter>("levels", {{"outputBlack", given}})->settings().outputBlack, expected) << given;
  }
  auto filter = make<BVLevelsFilter>("levels", {{"inputBlack", "20"}, {"inputWhite", nullptr}});
  filter->setParameters({{"outputWhite", 200}});
  const BVLevelsSettings& levels = filter->settings();
  EXPECT_EQ((std::array{levels.inputBlack, levels.inputWhite, levels.outputWhite}),
            (std::array<uint8_t, 3>{20, 255, 200}));
}

// The stretch and squeeze themselves are checked on the rendered photo.
TEST(LevelsFilter, AnEmptyInputRangeIsAStep) {
  CIFilterArray step = make("levels", {{"inputBlack", 128}, {"inputWhite", 128}})->CIFiltersForSize({1, 1});
  const CIVector scale = *input(step[0], "inputRVector").get<CIVector>(),
                 bias = *input(step[0], "inputBiasVector").get<CIVector>();
  EXPECT_NEAR(scale.X() * byte(128) + bias.X(), 0.0, 1e-6);
  EXPECT_NEAR(scale.X() * byte(129) + bias.X(), 1.0, 1e-5);
}

TEST(FadeAndSelectiveColor, RecipeValuesBecomeClampAndChannelScales) {
  for (const auto& [intensity, m] : std::vector<std::pair<Value, double>>{{0.5, 0.25}, {"strong", 0}}) {
    auto clamp = onlyOperation(make("fade", {{"intensity", intensity}}));
    EXPECT_EQ(input(clamp, "inputMinComponents"), CIValue(CIVector{m, m, m, 1.0})) << intensity;
    EXPECT_EQ(input(clamp, "inputMaxComponents"), CIValue(CIVector{1 - m, 1 - m, 1 - m, 1.0})) << intensity;
  }
  struct Case {
    Value parameters;
    double r, g, b;
  };
  const std::vector<Case> cases = {{Value::object(), 1, 1, 1},
                                   {{{"orangeAdjustment", 2.0}}, 4.5 / 3.5, 3.0 / 2.5, 1},
                                   {{{"purpleAdjustment", 3.0}, {"blueAdjustment", "more"}}, 4.5 / 3.5, 1, 2}};
  for (const Case& c : cases) {
    auto matrix = onlyOperation(make("selectiveColor", c.parameters));
    EXPECT_EQ(input(matrix, "inputRVector"), CIValue(CIVector{c.r, 0, 0, 0})) << c.parameters;
    EXPECT_EQ(input(matrix, "inputGVector"), CIValue(CIVector{0, c.g, 0, 0})) << c.parameters;
    EXPECT_EQ(input(matrix, "inputBVector"), CIValue(CIVector{0, 0, c.b, 0})) << c.parameters;
  }
  auto selective = make<BVSelectiveColorFilter>("selectiveColor", {{"greenAdjustment", 0.5}});
  selective->setParameters({{"purpleAdjustment", 0.25}});
  EXPECT_EQ(selective->settings().green, 0.5);
  auto fade = make<BVFadeFilter>("fade", {{"intensity", 0.5}});
  fade->setParameters(Value::object());
  EXPECT_EQ(fade->settings().intensity, 0.0);
}

TEST(SharpeningAndVignette, SizeRelativeValues) {
  EXPECT_EQ(input(onlyOperation(make("sharpen", {{"sharpness", 0.7}})), "inputSharpness"), CIValue(double(0.7f)));
  EXPECT_EQ(input(onlyOperation(make("sharpen", {{"sharpness", {1}}})), "inputSharpness"), CIValue(0.0));
  auto unsharp = make<BVUnsharpMaskFilter>("unsharp", {{"radius", 2}, {"intensity", 0.8}});
  for (const auto& [size, radius] : std::vector<std::pair<CGSize, double>>{{{1280, 1920}, 4}, {{640, 480}, 1.5}}) {
    EXPECT_EQ(input(onlyOperation(unsharp, size), "inputRadius"), CIValue(radius));
  }
  unsharp->setParameters({{"intensity", 0.5}});
  EXPECT_EQ(unsharp->settings().radius, 0.0);

  auto vignette = make<BVVignetteFilter>("vignette", {{"intensity", 0.9}});
  auto op = onlyOperation(vignette, {1000, 500});
  EXPECT_EQ(input(op, "inputRadius"), CIValue(250.0));
  EXPECT_EQ(input(op, "inputCenter"), CIValue(CIVector{500, 250}));
  auto processor = processing(vignette, CGRectMake(100, 40, 600, 800));
  vignette->setParameters({{"focus", 0.25}, {"intensity", "full"}});
  op = onlyOperation(vignette, {600, 800});
  EXPECT_EQ(input(op, "inputCenter"), CIValue(CIVector{400, 440}));
  EXPECT_EQ(input(op, "inputRadius"), CIValue(150.0));
}

// Only the colour layer draws on bitmap contexts; the others log one line each and draw nothing.
TEST(ToneFilters, OthersHaveNoBitmapContextPath) {
  for (std::string type : {"levels", "fade", "selectiveColor", "sharpen", "unsharp", "vignette"}) {
    auto filter = make(type);
    ASSERT_TRUE(filter) << type;
    test::LogCapture log;
    EXPECT_NO_THROW(filter->applyToCGContext(nullptr));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].rfind("[" + filter->className() + "] ", 0), 0u) << log.lines[0];
  }
}

}  // namespace
}  // namespace brenvia
