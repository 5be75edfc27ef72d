#include "catalogue/fade_filter.h"
#include "catalogue/levels_filter.h"
#include "catalogue/selective_color_filter.h"
#include "catalogue/sharpen_filter.h"
#include "catalogue/unsharp_mask_filter.h"
#include "catalogue/vignette_filter.h"
#include "platform/coreimage/ci_filter.h"
#include "processor/input.h"
#include "processor/processing.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace brenvia {
namespace {

// A processor that only reports the processed rectangle.
class RectProcessing : public BVProcessing {
 public:
  explicit RectProcessing(CGRect rect) : rect_(rect) {}
  std::shared_ptr<CIContext> context() const override { return nullptr; }
  std::shared_ptr<BVInput> input() const override { return nullptr; }
  Value output() const override { return Value(); }
  CGRect processingRect() const override { return rect_; }
  std::vector<std::shared_ptr<BVFilter>> filters() const override { return {}; }

 private:
  CGRect rect_;
};

BVFilterRef make(const std::string& type, Value parameters = Value::object()) {
  parameters["type"] = type;
  return BVFilter::filterWithParameters(parameters);
}

template <class T>
std::shared_ptr<T> made(const std::string& type, Value parameters = Value::object()) {
  return std::dynamic_pointer_cast<T>(make(type, std::move(parameters)));
}

double numberOf(const std::shared_ptr<CIFilter>& op, std::string_view key) {
  const CIValue value = op->valueForKey(key);  // kept alive: get() points into it
  const double* number = value.get<double>();
  return number ? *number : std::nan("");
}

CIVector vectorOf(const std::shared_ptr<CIFilter>& op, std::string_view key) {
  const CIValue value = op->valueForKey(key);
  const CIVector* vector = value.get<CIVector>();
  return vector ? *vector : CIVector();
}

// The one operation a filter gives at a size.
std::shared_ptr<CIFilter> onlyOperation(const BVFilterRef& filter, CGSize size = {640, 480}) {
  CIFilterArray operations = filter->CIFiltersForSize(size);
  EXPECT_EQ(operations.size(), 1u);
  return operations.empty() ? nullptr : operations.front();
}

TEST(ToneFilters, TypesMakeTheirClasses) {
  const std::vector<std::pair<std::string, std::string>> types = {
      {"levels", "BVLevelsFilter"},   {"fade", "BVFadeFilter"},         {"selectiveColor", "BVSelectiveColorFilter"},
      {"sharpen", "BVSharpenFilter"}, {"unsharp", "BVUnsharpMaskFilter"}, {"vignette", "BVVignetteFilter"},
      {"color", "BVColorFilter"}};
  for (const auto& [type, className] : types) {
    BVFilterRef filter = make(type);
    ASSERT_TRUE(filter) << type;
    EXPECT_EQ(filter->className(), className);
    EXPECT_EQ(filter->copy()->className(), className);
  }
}

TEST(LevelsFilter, LevelsAreLowBytesOfWholeNumbers) {
  struct Case {
    Value given;
    int expected;
  };
  const std::vector<Case> cases = {{30, 30}, {256, 0}, {300, 44}, {-1, 255}, {99.9, 99}, {true, 1}, {1e12, 255}};
  for (const Case& c : cases) {
    EXPECT_EQ(made<BVLevelsFilter>("levels", {{"outputBlack", c.given}})->outputBlack(), c.expected) << c.given;
  }
  auto defaults = made<BVLevelsFilter>("levels", {{"inputBlack", "20"}, {"inputWhite", nullptr}});
  EXPECT_EQ(defaults->inputBlack(), 0);
  EXPECT_EQ(defaults->inputWhite(), 255);
  EXPECT_EQ(defaults->outputWhite(), 255);

  defaults->setParameters({{"outputWhite", 200}});
  EXPECT_EQ(defaults->inputWhite(), 255);
  EXPECT_EQ(defaults->outputWhite(), 200);
  EXPECT_EQ(defaults->description().substr(defaults->description().find(';')),
            "; Input Black: 0, Input White: 255, Output Black: 0, Output White: 200>");
}

TEST(LevelsFilter, StretchThenSqueezeMatrices) {
  auto filter = made<BVLevelsFilter>("levels", {{"inputBlack", 51}, {"inputWhite", 204}, {"outputBlack", 25.5},
                                                {"outputWhite", 229.5}});
  CIFilterArray chain = filter->CIFiltersForSize({10, 10});
  ASSERT_EQ(chain.size(), 2u);
  const double ib = double(51.0f / 255.0f), d = double(204.0f / 255.0f) - ib;
  const double ob = double(25.0f / 255.0f), t = double(229.0f / 255.0f) - ob;
  EXPECT_EQ(vectorOf(chain[0], "inputRVector"), (CIVector{1 / d, 0, 0, 0}));
  EXPECT_EQ(vectorOf(chain[0], "inputBVector"), (CIVector{0, 0, 1 / d, 0}));
  EXPECT_EQ(vectorOf(chain[0], "inputBiasVector"), (CIVector{-ib / d, -ib / d, -ib / d, 0}));
  EXPECT_EQ(vectorOf(chain[1], "inputGVector"), (CIVector{0, t, 0, 0}));
  EXPECT_EQ(vectorOf(chain[1], "inputBiasVector"), (CIVector{ob, ob, ob, 0}));
  EXPECT_EQ(vectorOf(chain[1], "inputAVector"), (CIVector{0, 0, 0, 1}));

  // The full range composes to the identity.
  CIFilterArray identity = made<BVLevelsFilter>("levels")->CIFiltersForSize({1, 1});
  EXPECT_EQ(vectorOf(identity[0], "inputRVector").X() * vectorOf(identity[1], "inputRVector").X(), 1.0);
  EXPECT_EQ(vectorOf(identity[0], "inputBiasVector").X(), 0.0);

  // An empty input range becomes a one-level step instead of a division by zero.
  CIFilterArray step = made<BVLevelsFilter>("levels", {{"inputBlack", 128}, {"inputWhite", 128}})->CIFiltersForSize({1, 1});
  const CIVector scale = vectorOf(step[0], "inputRVector"), bias = vectorOf(step[0], "inputBiasVector");
  EXPECT_TRUE(std::isfinite(scale.X()) && std::isfinite(bias.X()));
  EXPECT_NEAR(scale.X() * double(128.0f / 255.0f) + bias.X(), 0.0, 1e-6);
  EXPECT_NEAR(scale.X() * double(129.0f / 255.0f) + bias.X(), 1.0, 1e-5);
}

TEST(FadeFilter, ClampsTowardsMidGreyAndKeepsPicturesOpaque) {
  struct Case {
    Value intensity;
    double m;
  };
  const std::vector<Case> cases = {{0.5, 0.25}, {1, 0.5}, {0, 0}, {"strong", 0}, {0.3, double(0.3f) * 0.5}};
  for (const Case& c : cases) {
    auto op = onlyOperation(make("fade", {{"intensity", c.intensity}}));
    ASSERT_EQ(op->name(), "CIColorClamp");
    EXPECT_EQ(vectorOf(op, "inputMinComponents"), (CIVector{c.m, c.m, c.m, 1.0})) << c.intensity;
    EXPECT_EQ(vectorOf(op, "inputMaxComponents"), (CIVector{1 - c.m, 1 - c.m, 1 - c.m, 1.0})) << c.intensity;
  }
  auto fade = made<BVFadeFilter>("fade", {{"intensity", 0.5}});
  fade->setParameters(Value::object());
  EXPECT_EQ(fade->intensity(), 0.0);
}

TEST(SelectiveColorFilter, WeightsFoldIntoChannelScales) {
  struct Case {
    Value parameters;
    double r, g, b;
  };
  const std::vector<Case> cases = {
      {Value::object(), 1, 1, 1},
      {{{"orangeAdjustment", 2.0}}, 4.5 / 3.5, 3.0 / 2.5, 1},
      {{{"yellowAdjustment", 0.0}}, 2.5 / 3.5, 1.5 / 2.5, 1},
      {{{"purpleAdjustment", 3.0}, {"blueAdjustment", "more"}}, 4.5 / 3.5, 1, 2},
      {{{"redAdjustment", 0}, {"greenAdjustment", 0}, {"blueAdjustment", 0}, {"yellowAdjustment", 0},
        {"orangeAdjustment", 0}, {"purpleAdjustment", 0}},
       0, 0, 0}};
  for (const Case& c : cases) {
    auto op = onlyOperation(make("selectiveColor", c.parameters));
    ASSERT_EQ(op->name(), "CIColorMatrix");
    EXPECT_EQ(vectorOf(op, "inputRVector"), (CIVector{c.r, 0, 0, 0})) << c.parameters;
    EXPECT_EQ(vectorOf(op, "inputGVector"), (CIVector{0, c.g, 0, 0})) << c.parameters;
    EXPECT_EQ(vectorOf(op, "inputBVector"), (CIVector{0, 0, c.b, 0})) << c.parameters;
    EXPECT_EQ(vectorOf(op, "inputAVector"), (CIVector{0, 0, 0, 1}));
    EXPECT_EQ(vectorOf(op, "inputBiasVector"), (CIVector{0, 0, 0, 0}));
  }
  auto filter = made<BVSelectiveColorFilter>("selectiveColor", {{"greenAdjustment", 0.5}});
  filter->setParameters({{"purpleAdjustment", 0.25}});
  EXPECT_EQ(filter->greenAdjustment(), 0.5);
  EXPECT_EQ(filter->purpleAdjustment(), 0.25);
  EXPECT_EQ(filter->description().substr(filter->description().find(';')),
            "; Red: 1.000, Green: 0.500, Blue: 1.000, Yellow: 1.000, Orange: 1.000, Purple: 0.250>");
}

TEST(SharpeningFilters, SharpnessAndRadiusRelativeToAShortSideOf640) {
  auto sharpen = onlyOperation(make("sharpen", {{"sharpness", 0.7}}));
  EXPECT_EQ(sharpen->name(), "CISharpenLuminance");
  EXPECT_EQ(numberOf(sharpen, "inputSharpness"), double(0.7f));
  EXPECT_EQ(numberOf(onlyOperation(make("sharpen", {{"sharpness", {1}}})), "inputSharpness"), 0.0);

  struct Case {
    CGSize size;
    double radius;
  };
  const std::vector<Case> cases = {{{1280, 1920}, 4.0}, {{640, 480}, 1.5}, {{320, 3000}, 1.0}, {{0, 100}, 0.0}};
  auto unsharp = make("unsharp", {{"radius", 2}, {"intensity", 0.8}});
  for (const Case& c : cases) {
    auto op = onlyOperation(unsharp, c.size);
    EXPECT_EQ(op->name(), "CIUnsharpMask");
    EXPECT_EQ(numberOf(op, "inputRadius"), c.radius) << c.size.width << "x" << c.size.height;
    EXPECT_EQ(numberOf(op, "inputIntensity"), double(0.8f));
  }
  unsharp->setParameters({{"intensity", 0.5}});
  EXPECT_EQ(numberOf(onlyOperation(unsharp), "inputRadius"), 0.0);
}

TEST(VignetteFilter, RadiusFromTheShortSideAndCentreFromTheProcessedArea) {
  auto vignette = made<BVVignetteFilter>("vignette", {{"intensity", 0.9}});
  auto op = onlyOperation(vignette, {1000, 500});
  EXPECT_EQ(op->name(), "CIVignetteEffect");
  EXPECT_EQ(numberOf(op, "inputRadius"), 250.0);
  EXPECT_EQ(numberOf(op, "inputIntensity"), 0.9);
  EXPECT_EQ(vectorOf(op, "inputCenter"), (CIVector{500, 250}));

  auto processing = std::make_shared<RectProcessing>(CGRectMake(100, 40, 600, 800));
  vignette->setProcessor(processing);
  vignette->setParameters({{"focus", 0.25}, {"intensity", "full"}});
  op = onlyOperation(vignette, {600, 800});
  EXPECT_EQ(vectorOf(op, "inputCenter"), (CIVector{400, 440}));
  EXPECT_EQ(numberOf(op, "inputRadius"), 150.0);
  EXPECT_EQ(numberOf(op, "inputIntensity"), 0.9);
  EXPECT_EQ(vignette->description(), "<BVVignetteFilter; Intensity: 0.9, Focus: 0.25>");
  EXPECT_EQ(made<BVVignetteFilter>("vignette")->description(), "<BVVignetteFilter; Intensity: 0, Focus: 0.5>");
}

TEST(ToneFilters, CopiesCarryFieldsSetThroughAccessors) {
  auto levels = made<BVLevelsFilter>("levels");
  levels->setOutputBlack(40);
  EXPECT_EQ(std::static_pointer_cast<BVLevelsFilter>(levels->copy())->outputBlack(), 40);
  auto selective = made<BVSelectiveColorFilter>("selectiveColor");
  selective->setOrangeAdjustment(3);
  EXPECT_EQ(std::static_pointer_cast<BVSelectiveColorFilter>(selective->copy())->orangeAdjustment(), 3.0);
  auto unsharp = made<BVUnsharpMaskFilter>("unsharp");
  unsharp->setRadius(5);
  EXPECT_EQ(std::static_pointer_cast<BVUnsharpMaskFilter>(unsharp->copy())->radius(), 5.0);
  auto vignette = made<BVVignetteFilter>("vignette");
  vignette->setFocus(0.8);
  EXPECT_EQ(std::static_pointer_cast<BVVignetteFilter>(vignette->copy())->focus(), 0.8);
  auto fade = made<BVFadeFilter>("fade");
  fade->setIntensity(0.4);
  EXPECT_EQ(std::static_pointer_cast<BVFadeFilter>(fade->copy())->intensity(), 0.4);
  auto sharpen = made<BVSharpenFilter>("sharpen");
  sharpen->setSharpness(2);
  EXPECT_EQ(std::static_pointer_cast<BVSharpenFilter>(sharpen->copy())->sharpness(), 2.0);
}

TEST(ToneFilters, DescriptionsAndTheBitmapContextPath) {
  struct Case {
    std::string type;
    std::string described, logged;
  };
  const std::vector<Case> cases = {
      {"fade", "; Intensity: 0.000000>",
       "[BVFadeFilter] Fade is not supported with CGContext. Use the Core Image chain or implement vImage."},
      {"sharpen", "; Sharpness: 0.000000>",
       "[BVSharpenFilter] Sharpen is not supported with CGContext. Use the Core Image chain or implement vImage."},
      {"unsharp", "; Intensity: 0.000000, Radius: 0.000000>",
       "[BVUnsharpMaskFilter] Unsharp mask is not supported with CGContext. Use the Core Image chain or implement "
       "vImage."},
      {"levels", "; Input Black: 0, Input White: 255, Output Black: 0, Output White: 255>",
       "[BVLevelsFilter] Levels is not supported with CGContext. Use the Core Image chain or implement vImage for "
       "Levels."},
      {"selectiveColor", "; Red: 1.000, Green: 1.000, Blue: 1.000, Yellow: 1.000, Orange: 1.000, Purple: 1.000>",
       "[BVSelectiveColorFilter] Selective Color is not supported with CGContext. Use the Core Image chain or "
       "implement vImage."},
      {"vignette", "; Intensity: 0, Focus: 0.5>",
       "[BVVignetteFilter] Vignette filter is not supported with CGContext. Use the Core Image chain or implement "
       "via gradients."}};
  for (const Case& c : cases) {
    BVFilterRef filter = make(c.type);
    const std::string text = filter->description();
    EXPECT_EQ(text.rfind("<" + filter->className() + (c.type == "vignette" ? ";" : ": 0x"), 0), 0u) << text;
    EXPECT_EQ(text.substr(text.find(';')), c.described);
    test::LogCapture log;
    EXPECT_NO_THROW(filter->applyToCGContext(nullptr));
    EXPECT_EQ(log.lines, std::vector<std::string>{c.logged});
  }
}

}  // namespace
}  // namespace brenvia
