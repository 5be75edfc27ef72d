#include "test_support.h"

#include "image/bitmap_context.h"
#include "processor/image_processor.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace brenvia {
namespace {

// Fills the left `columns` of the context with a colour at an alpha it leaves set, and records
// the calls it gets.
class FillingFilter final : public BVFilter {
 public:
  FillingFilter(std::vector<std::string>* calls, double columns, double alpha, std::array<double, 3> rgb)
      : calls_(calls), columns_(columns), alpha_(alpha), rgb_(rgb) {}
  void prepareToApply() override { calls_->push_back("prepare"); }
  bool shouldApply() override {
    calls_->push_back("shouldApply");
    return true;
  }
  void applyToCGContext(BVBitmapContext* context) override {
    calls_->push_back("apply");
    CGContextSetAlpha(context->context(), alpha_);
    CGContextSetRGBFillColor(context->context(), rgb_[0], rgb_[1], rgb_[2], 1);
    CGContextFillRect(context->context(), CGRectMake(0, 0, columns_, 1000));
  }

 private:
  std::vector<std::string>* calls_;
  double columns_, alpha_;
  std::array<double, 3> rgb_;
};

std::shared_ptr<BVImageProcessor> drawingProcessor(BVFilterArray filters) {
  BVImageProcessorOptions options;
  options.renderWithCoreGraphics = true;
  return BVImageProcessor::initWithFilters(std::move(filters), options);
}

TEST(BitmapRoad, FiltersDrawInTurnWithTheirStateRestored) {
  std::vector<std::string> calls;
  auto fading = std::make_shared<FillingFilter>(&calls, 4, 0.5, std::array<double, 3>{1, 0, 0});
  auto covering = std::make_shared<FillingFilter>(&calls, 2, 1.0, std::array<double, 3>{0, 0, 1});
  auto disabled = std::make_shared<FillingFilter>(&calls, 4, 1.0, std::array<double, 3>{0, 1, 0});
  disabled->setEnabled(false);
  auto processor = drawingProcessor({fading, disabled, covering});
  auto out = processor->process(BVImage::initWithCGImage(test::solidBitmap(4, 2, {0, 0, 0, 255})));
  ASSERT_TRUE(out);
  EXPECT_EQ(calls, (std::vector<std::string>{"prepare", "shouldApply", "apply", "prepare", "shouldApply", "apply"}));
  EXPECT_EQ(disabled->processor(), processor);
  EXPECT_TRUE(CGRectEqualToRect(processor->processingRect(), CGRectMake(0, 0, 4, 2)));
  EXPECT_FALSE(processor->bitmapContext());
  // B, G, R, A: the second filter drew at full alpha although the first left 0.5 set.
  EXPECT_EQ(test::pixelAt(out->CGImage(), 0, 0), (std::array<int, 4>{255, 0, 0, 255}));
  EXPECT_EQ(test::pixelAt(out->CGImage(), 3, 1), (std::array<int, 4>{0, 0, 128, 255}));
}

TEST(BitmapRoad, AdjustmentsLogAndLeaveThePictureAsItIs) {
  auto processor =
      drawingProcessor(BVFilter::filtersWithArray(Value::array({{{"type", "adjustment"}, {"exposure", 1.0}}})));
  test::LogCapture log;
  auto out = processor->process(BVImage::initWithCGImage(test::solidBitmap(2, 2, {60, 90, 120, 255})));
  ASSERT_TRUE(out);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.lines[0].starts_with("[BVAdjustmentFilter] Color adjustment is not supported")) << log.lines[0];
  EXPECT_EQ(test::pixelAt(out->CGImage(), 1, 1), (std::array<int, 4>{120, 90, 60, 255}));
  EXPECT_FALSE(processor->process(std::make_shared<BVImage>()));
}

TEST(BitmapRoad, FileRunsWriteAJpegAndGiveNoImage) {
  test::TempFolder folder;
  auto processor = drawingProcessor({});
  const std::string path = folder.path("out.jpg");
  ASSERT_TRUE(processor->processAsJPEG(BVImage::initWithCGImage(test::solidBitmap(3, 3, {9, 9, 9, 255})), path));
  EXPECT_TRUE(std::filesystem::exists(path));
  test::LogCapture log;
  EXPECT_FALSE(processor->processAsJPEG(BVImage::initWithCGImage(test::solidBitmap(3, 3, {9, 9, 9, 255})),
                                        folder.path("missing/out.jpg")));
  EXPECT_EQ(log.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia
