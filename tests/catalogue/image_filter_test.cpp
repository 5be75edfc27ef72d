#include "catalogue/image_filter.h"

#include "filter/randomization.h"
#include "image/image.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace brenvia {
namespace {

class ImageFilters : public ::testing::Test {
 protected:
  void picture(const std::string& name, size_t w, size_t h, std::array<uint8_t, 4> colour) {
    std::vector<uint8_t> png;
    imageio::encodePNG(*test::solidBitmap(w, h, colour), {}, png);
    imageio::writeFileAtomically(folder.path(name), png);
  }
  template <class T = BVImageFilter>
  std::shared_ptr<T> make(const Value& parameters) {
    auto filter = std::make_shared<T>();
    filter->initWithParameters(parameters, folder.path(""));
    return filter;
  }
  static std::shared_ptr<BVImage> render(const BVFilterRef& filter, const std::shared_ptr<BVImage>& image,
                                         bool bitmapRoad, std::shared_ptr<BVInput> input = nullptr) {
    BVImageProcessorOptions options;
    options.renderWithCoreGraphics = bitmapRoad;
    options.input = std::move(input);
    return BVImageProcessor::initWithFilters({filter}, options)->process(image);
  }
  static std::array<int, 3> rgb(const std::shared_ptr<BVImage>& image, size_t x, size_t y) {
    return test::rgbAt(*image->CGImage(), x, y);
  }
  test::TempFolder folder;
};

TEST_F(ImageFilters, PositionWordsAndRandomPlacementKeys) {
  EXPECT_EQ(BVImagePositionFromString("top left"), 10u);
  EXPECT_EQ(BVImagePositionFromString("bottom  right"), 20u);
  EXPECT_EQ(BVImagePositionFromString("middle"), 0u);
  auto randomized = make({{"randomizeImage", true}, {"randomlyRotate", 0}, {"scaling", "fill"}});
  EXPECT_TRUE(randomized->randomlyMirrorHorizontally() && randomized->randomlyMirrorVertically());
  EXPECT_EQ(randomized->randomlyRotate(), 90);
  EXPECT_EQ(randomized->scalingMode(), BVImageScalingModeFill);
  EXPECT_EQ(make({{"zoom", 1.5}, {"randomlyRotate", 45}})->randomlyRotate(), 45);

  auto grain = make({{"zoom", 1.5}, {"tags", {"grain"}}});
  auto input = std::make_shared<BVInput>();
  input->otherInput = std::map<BVInputKey, BVInputValue, std::less<>>{{"imageGrainZoom", 2.0}};
  auto processor = BVImageProcessor::initWithFilters({grain}, BVImageProcessorOptions{.input = input});
  grain->setProcessor(processor);
  grain->prepareToApply();
  EXPECT_EQ(grain->zoom(), 2.0);
}

// A half-transparent multiply of a flat picture over a flat canvas, on both roads.
TEST_F(ImageFilters, OverlayBlendsOnBothRoadsAndAMissingPictureIsSkipped) {
  picture("tint.png", 16, 16, {128, 255, 64, 255});
  auto canvas = BVImage::initWithCGImage(test::solidBitmap(8, 8, {200, 100, 50, 255}));
  const Value recipe = {{"imageName", "tint"}, {"mode", "Multiply"}, {"alpha", 0.5}};
  for (bool bitmapRoad : {false, true}) {
    SCOPED_TRACE(bitmapRoad ? "drawing" : "engine");
    auto out = render(make(recipe), canvas, bitmapRoad);
    ASSERT_TRUE(out);
    // Multiply in sRGB, then halfway back to the canvas: 200·(1 + 128/255)/2, 100, 50·(1 + 64/255)/2.
    for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(rgb(out, 3, 4)[c], (std::array{150, 100, 31})[c], 2) << c;
  }
  // A missing or damaged picture file is reported and left out, on both roads.
  std::ofstream(folder.path("broken.png"), std::ios::binary) << "\x89PNG\r\n\x1a\n truncated";
  for (const std::string name : {"absent", "broken"}) {
    for (bool bitmapRoad : {false, true}) {
      test::LogCapture log;
      auto out = render(make({{"imageName", name}}), canvas, bitmapRoad);
      ASSERT_TRUE(out);
      EXPECT_EQ(rgb(out, 1, 1), (std::array<int, 3>{200, 100, 50}));
      ASSERT_FALSE(log.lines.empty());
      EXPECT_NE(log.lines[0].find(name), std::string::npos) << log.lines[0];
    }
  }
}

TEST_F(ImageFilters, ZoomGrowsThePictureAboutTheCentre) {
  auto filter = make({{"zoom", 2.0}});
  filter->setImage(BVImage::initWithCGImage(test::solidBitmap(10, 10, {0, 0, 0, 255})));
  auto processor = BVImageProcessor::initWithFilters({filter});
  processor->setProcessingRect(CGRectMake(0, 0, 10, 10));
  filter->setProcessor(processor);
  CIFilterArray operations = filter->CIFiltersForSize({10, 10});
  ASSERT_EQ(operations.size(), 1u);
  EXPECT_TRUE(CGRectEqualToRect(operations[0]->image(kCIInputImageKey)->extent(), CGRectMake(0, 0, 10, 10)));
}

// Quarter turns only for nearly square pictures; mirrors for all.
TEST_F(ImageFilters, OnlyNearlySquarePicturesTurn) {
  for (auto [w, h, turns] : {std::tuple{100, 96, true}, std::tuple{100, 50, false}}) {
    auto filter = make({{"randomizeImage", true}});
    filter->setImage(BVImage::initWithCGImage(test::solidBitmap(size_t(w), size_t(h), {0, 0, 0, 255})));
    auto input = std::make_shared<BVInput>();
    input->randomization = std::make_shared<BVRandomization>();
    input->randomization->setStoredRandomizationValues({{"4-general", 2}, {"2-general", 0}});  // a quarter turn
    auto processor = BVImageProcessor::initWithFilters({filter}, BVImageProcessorOptions{.input = input});
    filter->setProcessor(processor);
    const CGSize placed = filter->CIFiltersForSize(CGSizeMake(w, h))[0]->image(kCIInputImageKey)->extent().size;
    EXPECT_EQ(std::round(placed.width) == h, turns) << w << "x" << h;
  }
}

TEST_F(ImageFilters, SequencesStepAndRandomChoicesRepeatUnderStoredDraws) {
  const Value blends = {
      {{"imageName", "a"}, {"alpha", 0.5}, {"mode", "Screen"}}, {{"imageName", "b"}}, {{"imageName", "c"}}};
  auto sequence = make<BVImageSequenceFilter>({{"imageBlends", blends}, {"alpha", 0.3}});
  std::vector<std::string> shown;
  for (int run = 0; run < 4; ++run) {
    sequence->prepareToApply();
    shown.push_back(*sequence->imageName());
    if (run == 1) EXPECT_TRUE(sequence->alpha() == 1.0 && !sequence->mode());  // a blend without alpha is opaque
  }
  EXPECT_EQ(shown, (std::vector<std::string>{"a", "b", "c", "a"}));

  auto random = make<BVRandomImageFilter>({{"imageBlends", blends}, {"alpha", 0.3}});
  auto input = std::make_shared<BVInput>();
  input->randomization = std::make_shared<BVRandomization>();
  input->randomization->setStoredRandomizationValues({{"3-general", 1}});
  auto processor = BVImageProcessor::initWithFilters({random}, BVImageProcessorOptions{.input = input});
  random->setProcessor(processor);
  random->prepareToApply();
  EXPECT_EQ(random->imageName(), "b");
  EXPECT_EQ(random->alpha(), double(0.3f));  // the recipe's alpha stays
}

}  // namespace
}  // namespace brenvia
