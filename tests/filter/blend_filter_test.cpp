#include "filter/blend_filter.h"

#include "filter/mask.h"
#include "filter/randomization.h"
#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_filter.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <set>

namespace brenvia {
namespace {

// What a filter sees of a processor: an input, the processed rectangle and, for a live preview,
// a randomization frequency.
class FakeProcessing : public BVProcessing {
 public:
  std::shared_ptr<CIContext> context() const override { return nullptr; }
  std::shared_ptr<BVInput> input() const override { return input_; }
  Value output() const override { return Value(); }
  CGRect processingRect() const override { return rect_; }
  std::vector<std::shared_ptr<BVFilter>> filters() const override { return {}; }
  std::optional<double> randomizationFrequency() const override { return frequency_; }

  std::shared_ptr<BVInput> input_ = std::make_shared<BVInput>();
  CGRect rect_ = CGRectZero;
  std::optional<double> frequency_;
};

// The smallest overlay filter: lays a fixed picture over the canvas on both roads.
class PictureOverlay final : public BVBlendFilter {
 public:
  explicit PictureOverlay(CGImageRef picture) : picture_(std::move(picture)) {}
  CIFilterArray CIFiltersForSize(CGSize size) override {
    CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
    if (operations.empty()) return operations;
    CIImageRef overlay = overlayImageWithAlpha(CIImage::imageWithCGImage(picture_));
    offsetOverlayImageIfNeeded(overlay);
    operations.front()->setValue(overlay, kCIInputImageKey);
    return CIFiltersWithMaskIfNeeded(operations, operations.front(), size);
  }
  void applyToCGContext(BVBitmapContext* context) override {
    BVBlendFilter::applyToCGContext(context);
    CGContextDrawImage(context->context(), CGRectMake(0, 0, double(picture_->width()), double(picture_->height())),
                       picture_);
  }

 private:
  CGImageRef picture_;
};

// A mask whose operation is a named colour operation, so tests can see where it lands.
class MarkerMask final : public BVMask {
 public:
  std::shared_ptr<CIFilter> maskCIFilterForFilter(const BVFilter&) override {
    return CIFilter::filterWithName("CIColorInvert");
  }
  std::shared_ptr<BVImage> maskImageForFilter(const BVFilter&) override { return nullptr; }
  std::optional<std::string> imageName() const override { return "mask.png"; }
  void clearProcessingCache() override { ++cleared; }
  int cleared = 0;
};

std::shared_ptr<BVBlendFilter> blendFilter(const Value& parameters) {
  auto filter = std::make_shared<BVBlendFilter>();
  filter->initWithParameters(parameters);
  return filter;
}

std::vector<std::string> names(const CIFilterArray& operations) {
  std::vector<std::string> all;
  for (const auto& op : operations) all.push_back(op->name());
  return all;
}

TEST(BVBlendFilter, AlphaSurvivesParametersWithoutIt) {
  auto filter = blendFilter(Value::object());
  filter->setParameters({{"alpha", 0.3}, {"mode", "Multiply"}});
  EXPECT_EQ(filter->alpha(), double(0.3f));
  filter->setParameters({{"mode", 3}});
  EXPECT_EQ(filter->alpha(), double(0.3f));
  EXPECT_FALSE(filter->mode());
}

TEST(BVBlendFilter, AlphaSlidersAverageTheFiltersTags) {
  auto processing = std::make_shared<FakeProcessing>();
  processing->input_->alphaSliders = std::map<std::string, double>{{"grain", 0.5}, {"frame", 1.0}, {"other", 0.1}};
  auto translucent = blendFilter({{"alpha", 0.4}, {"tags", {"grain"}}});
  auto opaque = blendFilter({{"tags", {"grain"}}});
  auto both = blendFilter({{"alpha", 0.4}, {"tags", {"grain", "frame"}}});
  auto untagged = blendFilter({{"alpha", 0.4}, {"tags", {"texture"}}});
  for (auto& f : {translucent, opaque, both, untagged}) f->setProcessor(processing);
  EXPECT_DOUBLE_EQ(translucent->alpha(), double(float(double(0.4f))));  // 0.5 keeps the recipe's alpha
  EXPECT_EQ(opaque->alpha(), 0.5);                                      // an opaque filter follows the slider
  EXPECT_DOUBLE_EQ(both->alpha(), double(float((double(0.4f) + double(0.4f) * 2) / 2)));
  EXPECT_EQ(untagged->alpha(), double(0.4f));
  // A copy keeps the alpha in effect when it was made.
  auto copy = std::static_pointer_cast<BVBlendFilter>(both->copy());
  EXPECT_DOUBLE_EQ(copy->alpha(), both->alpha());
}

TEST(BVBlendFilter, RandomAlphaInHundredthsRepeatsUnderAStoredRandomization) {
  auto processing = std::make_shared<FakeProcessing>();
  processing->input_->randomization = std::make_shared<BVRandomization>();
  processing->input_->randomization->setStoredRandomizationValues({{"60-general", 37}});
  auto filter = blendFilter({{"alphaMinimum", 0.2}, {"alphaMaximum", 0.8}});
  filter->setProcessor(processing);
  filter->prepareToApply();
  EXPECT_EQ(filter->alpha(), double(float(57) * 0.01f));
  for (int i = 0; i < 200; ++i) {
    auto fresh = blendFilter({{"alphaMinimum", 0.2}, {"alphaMaximum", 0.8}});
    fresh->prepareToApply();
    ASSERT_GE(fresh->alpha(), double(0.2f) - 1e-6);
    ASSERT_LE(fresh->alpha(), double(0.79f) + 1e-6);
    ASSERT_NEAR(fresh->alpha() * 100, std::round(fresh->alpha() * 100), 1e-4);
  }
  auto cut = blendFilter({{"alphaMinimum", 0.2}, {"alphaMaximum", 0.8}, {"absoluteAlphaMinimum", 0.9}});
  cut->prepareToApply();
  EXPECT_EQ(cut->alpha(), 0.0);
}

TEST(BVBlendFilter, LivePreviewRedrawsAlphaAtMostOncePerFrequency) {
  auto processing = std::make_shared<FakeProcessing>();
  processing->frequency_ = 3600;
  auto filter = blendFilter({{"alphaMinimum", 0.0}, {"alphaMaximum", 1.0}});
  filter->setProcessor(processing);
  filter->prepareToApply();
  const double first = filter->alpha();
  filter->setAlpha(0.123);
  filter->prepareToApply();
  EXPECT_EQ(filter->alpha(), 0.123);
  EXPECT_NE(first, 0.123);
}

TEST(BVBlendFilter, HandsOutTheBlendChromaKeyOrAlternateOperations) {
  for (auto [mode, operation] : {std::pair{"Multiply", "CIMultiplyBlendMode"},
                                 {"VividLight", "BVVividLightBlendMode"},
                                 {"Bogus", "CISourceOverCompositing"}})
    EXPECT_EQ(names(blendFilter({{"mode", mode}})->CIFiltersForSize({4, 4})), std::vector<std::string>{operation});
  EXPECT_TRUE(blendFilter({{"skipCIFilter", true}})->CIFiltersForSize({4, 4}).empty());

  auto keyed = blendFilter({{"mode", "Screen"}, {"chromaKey", {{"colorHex", "#00ff00"}, {"threshold", 0.2}}}});
  CIFilterArray keying = keyed->CIFiltersForSize({4, 4});
  ASSERT_EQ(names(keying), std::vector<std::string>{"BVChromaKeyCIFilter"});
  EXPECT_EQ(keying[0]->number("inputThreshold"), double(0.2f));
  EXPECT_EQ(keying[0]->color("inputChromaKeyColor"), CIColor::colorWithCGColor(CGColorCreateWithHex("00ff00")));
  EXPECT_FALSE(blendFilter({{"chromaKey", {{"colorHex", ""}}}})->chromaKeyOperation());

  auto alternates =
      blendFilter({{"alternateCIFilters",
                    {{{"name", "CIColorControls"}, {"attributes", {{"inputSaturation", 0.5}, {"inputImage", 1}}}},
                     {{"name", "CIFalseColor"}, {"attributes", {{"inputColor0", "#ff0000"}}}},
                     {{"name", "NoSuchOperation"}}}}});
  CIFilterArray replaced = alternates->CIFiltersForSize({4, 4});
  ASSERT_EQ(names(replaced), (std::vector<std::string>{"CIColorControls", "CIFalseColor"}));
  EXPECT_EQ(replaced[0]->number("inputSaturation"), 0.5);
  EXPECT_TRUE(replaced[0]->valueForKey("inputImage").isNull());
  EXPECT_EQ(replaced[1]->color("inputColor0").red(), 1.0);
  alternates->setParameters({{"mode", "Multiply"}});
  // Read once and kept for the filter's life, but handed out as new objects every time.
  CIFilterArray again = alternates->CIFiltersForSize({4, 4});
  EXPECT_EQ(names(again), names(replaced));
  EXPECT_NE(again[0], replaced[0]);

  auto older = blendFilter({{"alternateCIFilter", "CIColorInvert"}, {"alternateCIAttributes", Value::object()}});
  EXPECT_EQ(names(older->CIFiltersForSize({4, 4})), std::vector<std::string>{"CIColorInvert"});
  EXPECT_TRUE(blendFilter({{"alternateCIFilter", "CIColorInvert"}})->alternateCIFilters().empty());
}

TEST(BVBlendFilter, MaskGoesBeforeTheOverlayOrTheLastCompositingStep) {
  auto filter = blendFilter({{"mode", "Multiply"}, {"chromaKey", {{"colorHex", "#00ff00"}}}});
  auto mask = std::make_shared<MarkerMask>();
  filter->setMask(mask);
  CIFilterArray handedOut = filter->CIFiltersForSize({4, 4});
  EXPECT_EQ(names(handedOut), std::vector<std::string>{"CIMultiplyBlendMode"});  // the mask wins over the key

  auto overlay = CIImage::imageWithColor(CIColor(1, 0, 0))->imageByCroppingToRect(CGRectMake(0, 0, 2, 2));
  handedOut[0]->setValue(overlay, kCIInputImageKey);
  EXPECT_EQ(filter->CIFiltersWithMaskIfNeeded(handedOut, handedOut[0], {4, 4}), handedOut);
  auto masked = test::renderFloat(handedOut[0]->image(kCIInputImageKey), CGRectMake(0, 0, 1, 1), test::unmanaged());
  EXPECT_EQ(masked[0], 0.0f);  // the overlay went through the mask operation

  auto op = [](const char* name) { return CIFilter::filterWithName(name); };
  auto placed = [&](CIFilterArray list) { return names(filter->CIFiltersWithMaskIfNeeded(list, nullptr, {4, 4})); };
  using Names = std::vector<std::string>;
  EXPECT_EQ(placed({}), Names{"CIColorInvert"});
  EXPECT_EQ(placed({op("CIGammaAdjust")}), (Names{"CIGammaAdjust", "CIColorInvert"}));
  EXPECT_EQ(placed({op("CIMultiplyBlendMode")}), (Names{"CIColorInvert", "CIMultiplyBlendMode"}));
  EXPECT_EQ(placed({op("CIGammaAdjust"), op("BVAlphaCIFilter"), op("CIScreenBlendMode")}),
            (Names{"CIGammaAdjust", "CIColorInvert", "BVAlphaCIFilter", "CIScreenBlendMode"}));
  filter->clearProcessingCaches();
  EXPECT_EQ(mask->cleared, 1);

  test::LogCapture log;
  auto forgotten = blendFilter(Value::object());
  forgotten->setMask(mask);
  forgotten->CIFiltersForSize({4, 4});
  forgotten.reset();
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].substr(0, 52), "[BVBlendFilter] An unhandled mask was detected. Proc");
}

TEST(BVBlendFilter, OverlayIsFadedAndMovedToTheProcessedRectangle) {
  auto processing = std::make_shared<FakeProcessing>();
  processing->rect_ = CGRectMake(10, 20, 5, 5);
  auto filter = blendFilter({{"alpha", 0.5}});
  filter->setProcessor(processing);
  CIImageRef overlay = filter->overlayImageWithAlpha(
      CIImage::imageWithColor(CIColor(1, 1, 1))->imageByCroppingToRect(CGRectMake(0, 0, 2, 2)));
  filter->offsetOverlayImageIfNeeded(overlay);
  EXPECT_TRUE(CGRectEqualToRect(overlay->extent(), CGRectMake(10, 20, 2, 2)));
  EXPECT_EQ(test::renderFloat(overlay, CGRectMake(10, 20, 1, 1), test::unmanaged())[3], 0.5f);
  EXPECT_FALSE(filter->overlayImageWithAlpha(CIImageRef()));
  auto opaque = CIImage::imageWithColor(CIColor(1, 1, 1));
  EXPECT_EQ(blendFilter(Value::object())->overlayImageWithAlpha(opaque), opaque);
}

TEST(BVBlendFilter, BitmapRoadSetsModeAndAlphaAndCannotKey) {
  auto context = BVBitmapContext::initWithCGImage(test::solidBitmap(2, 2, {0, 0, 0, 255}));
  test::LogCapture log;
  auto keyed = blendFilter({{"mode", "Clear"}, {"alpha", 0.5}, {"chromaKey", {{"colorHex", "#00ff00"}}}});
  keyed->applyToCGContext(context.get());
  EXPECT_EQ(log.lines.size(), 1u);
}

// Every blend name on both roads, over a photo-like backdrop with a translucent overlay: the modes
// the drawing API has agree with the engine; the others draw as Normal there.
TEST(BVBlendFilter, EveryBlendModeOnBothRoads) {
  const size_t w = 24, h = 16;
  auto backdrop = BVImage::initWithCGImage(test::makeBitmap(w, h, [](size_t x, size_t y) {
    return std::array<uint8_t, 4>{uint8_t(x * 10 + 5), uint8_t(y * 15 + 3), uint8_t((x * y * 7) % 251), 255};
  }));
  CGImageRef overlay = test::makeBitmap(w, h, [](size_t x, size_t y) {
    return std::array<uint8_t, 4>{uint8_t(250 - y * 14), uint8_t((x * 37) % 256), uint8_t(x * 9 + y * 5), 255};
  });
  auto render = [&](const std::string& mode, bool bitmapRoad) {
    auto filter = std::make_shared<PictureOverlay>(overlay);
    filter->initWithParameters({{"mode", mode}, {"alpha", 0.75}});
    BVImageProcessorOptions options;
    options.renderWithCoreGraphics = bitmapRoad;
    auto out = BVImageProcessor::initWithFilters({filter}, options)->process(backdrop);
    EXPECT_TRUE(out);
    return out->CGImage();
  };
  auto largestDifference = [](const CGImageRef& a, const CGImageRef& b) {
    return test::largestColourDifference(*a, *b);
  };
  const CGImageRef normalDrawn = render("Normal", true), normalRendered = render("Normal", false);
  const std::set<std::string> engineOnlyFormula = {"PlusDarker", "PlusLighter"};
  for (std::string_view name : BVBlendModeNames()) {
    const std::string mode(name);
    SCOPED_TRACE(mode);
    const CGImageRef drawn = render(mode, true), rendered = render(mode, false);
    if (engineOnlyFormula.count(mode)) continue;
    if (CGBlendModeWithString(mode) == kCGBlendModeNormal) {
      EXPECT_EQ(largestDifference(drawn, normalDrawn), 0);
      const bool ownOperation = CIFilterNameFromBVBlendMode(mode) != "CISourceOverCompositing";
      EXPECT_EQ(largestDifference(rendered, normalRendered) > 0, ownOperation);
    } else {
      // Dodge and burn divide by the overlay, so one 8-bit step of the drawing's overlay moves the
      // result by up to ten levels where the curve is steep.
      const bool divides = mode == "ColorDodge" || mode == "ColorBurn";
      EXPECT_LE(largestDifference(drawn, rendered), divides ? 16 : 3);
    }
  }
}

}  // namespace
}  // namespace brenvia
