#include "test_support.h"

#include "operators/library_operators.h"
#include "platform/imageio/image_io.h"
#include "processor/filter_chain.h"
#include "processor/image_processor.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<BVImage> solidImage(size_t w, size_t h, std::array<uint8_t, 4> p) {
  return BVImage::initWithCGImage(test::solidBitmap(w, h, p));
}

BVFilterArray recipe(const Value& array) { return BVFilter::filtersWithArray(array); }

TEST(ImageProcessor, OpaqueFilterDropsTheFiltersBeforeIt) {
  auto filters = recipe(Value::array({{{"type", "adjustment"}, {"exposure", 1.0}},
                                      {{"type", "adjustment"}, {"exposure", 1.0}},
                                      {{"type", "adjustment"}, {"exposure", 1.0}},
                                      {{"type", "adjustment"}, {"exposure", -1.0}, {"opaque", true}},
                                      {{"type", "adjustment"}, {"brightness", 0.0}}}));
  auto processor = BVImageProcessor::initWithFilters(filters);
  auto out = processor->process(solidImage(4, 4, {100, 100, 100, 255}));
  ASSERT_TRUE(out);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(filters[i]->processor(), nullptr) << i;
  EXPECT_EQ(filters[3]->processor(), processor);
  // Only the -1 EV step ran, in the picture's own (sRGB-encoded) space: 100 halves to 50.
  EXPECT_EQ(test::pixelAt(out->CGImage(), 0, 0)[0], 50);
}

TEST(ImageProcessor, NoEnabledFilterRendersTheImageUnchanged) {
  auto filters = recipe(Value::array({{{"type", "adjustment"}, {"exposure", 1.0}, {"enabled", false}}}));
  auto processor = BVImageProcessor::initWithFilters(filters);
  auto out = processor->process(solidImage(3, 2, {10, 200, 30, 255}));
  ASSERT_TRUE(out);
  EXPECT_EQ(test::pixelAt(out->CGImage(), 2, 1), (std::array<int, 4>{10, 200, 30, 255}));
  EXPECT_TRUE(CGRectEqualToRect(processor->processingRect(), CGRectMake(0, 0, 3, 2)));
}

TEST(ImageProcessor, DeferredResultsStayEngineImages) {
  BVImageProcessorOptions options;
  options.returnCIImage = true;
  auto processor =
      BVImageProcessor::initWithFilters(recipe(Value::array({{{"type", "adjustment"}, {"contrast", 1.5}}})), options);
  auto out = processor->process(solidImage(5, 5, {128, 128, 128, 255}));
  ASSERT_TRUE(out);
  EXPECT_EQ(out->backingStorage(), BVImage::kBackingStorageCoreImage);
  EXPECT_TRUE(CGRectEqualToRect(out->CIImage()->extent(), CGRectMake(0, 0, 5, 5)));
}

TEST(ImageProcessor, PicturesBeyondTheContextLimitMoveToASoftwareContext) {
  auto shared = CIContext::context();
  BVImageProcessorOptions options;
  options.sharedCIContext = shared;
  auto processor = BVImageProcessor::initWithFilters({}, options);
  test::LogCapture log;
  auto out = processor->process(solidImage(16385, 1, {9, 9, 9, 255}));
  ASSERT_TRUE(out);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.lines[0].starts_with("[BVImageProcessor] Input image exceeds")) << log.lines[0];
  EXPECT_NE(processor->context(), shared);
  EXPECT_TRUE(processor->context()->options().useSoftwareRenderer);
}

TEST(ImageProcessor, JpegRunsWriteFilesAndReportFailures) {
  test::TempFolder folder;
  auto processor =
      BVImageProcessor::initWithFilters(recipe(Value::array({{{"type", "adjustment"}, {"exposure", 1.0}}})));
  std::string path = folder.path("out.jpg");
  ASSERT_TRUE(processor->processAsJPEG(solidImage(8, 8, {60, 60, 60, 255}), path));
  auto written = BVImage::initWithContentsOfFile(path);
  ASSERT_TRUE(written);
  EXPECT_NEAR(test::pixelAt(written->CGImage(), 4, 4)[0], 120, 2);
  test::LogCapture log;
  EXPECT_FALSE(processor->processAsJPEG(solidImage(8, 8, {60, 60, 60, 255}), folder.path("missing/x.jpg")));
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].rfind("[BVImageProcessor] Error processing image to file: ", 0), 0u);
  std::string temporary = processor->processAsTemporaryJPEG(solidImage(4, 4, {1, 1, 1, 255}));
  EXPECT_NE(temporary.find("BVImageProcessorRender-"), std::string::npos);
  EXPECT_TRUE(fs::exists(temporary));
  fs::remove(temporary);
}

// The file road applies the picture's orientation, and tells a failure of the file from one of
// the picture.
TEST(ImageProcessor, FileRunsWriteTheUprightPictureInTheFormatOfTheName) {
  test::TempFolder folder;
  auto bitmap = test::makeBitmap(4, 2, [](size_t x, size_t) {
    return x == 0 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  });
  auto picture = BVImage::initWithCGImage(bitmap);
  picture->setImageOrientation(BVImageOrientationRight);
  auto processor = BVImageProcessor::initWithFilters({});
  ASSERT_TRUE(processor->processToFile(picture, folder.path("out.png")));
  auto written = imageio::decodeFile(folder.path("out.png"));
  ASSERT_TRUE(written);
  ASSERT_EQ(written->image->width(), 2u);
  ASSERT_EQ(written->image->height(), 4u);
  EXPECT_EQ(test::rgbAt(*written->image, 1, 0)[0], 255);  // the stored left column is now the top row
  EXPECT_EQ(written->properties["Orientation"], 1);
  for (std::string name : {"missing/out.png", "out.gif"}) {
    BVFileOutputFailure failure;
    EXPECT_FALSE(processor->processToFile(picture, folder.path(name), {}, &failure)) << name;
    EXPECT_FALSE(failure.picture) << name;
    EXPECT_FALSE(failure.reason.empty()) << name;
  }
}

TEST(ChainStep, OverlaysBlendsAndMasksGetTheirInputs) {
  auto picture = CIImage::imageWithColor(CIColor(0.2, 0.2, 0.2))->imageByCroppingToRect(CGRectMake(0, 0, 4, 4));
  auto overlay = CIImage::imageWithColor(CIColor(1, 0, 0, 0.5))->imageByCroppingToRect(CGRectMake(0, 0, 4, 4));
  // An overlay whose image is set blends over the current picture.
  auto over = CIFilter::filterWithName("CISourceOverCompositing", {{"inputImage", overlay}});
  EXPECT_EQ(CIImageWithCIFilters(picture, {over})->extent().size.width, 4);
  EXPECT_EQ(over->valueForKey("inputBackgroundImage"), CIValue(picture));
  // An effect followed by a blend: the blend lays the effect over the picture from before it.
  auto effect = CIFilter::filterWithName("CIColorInvert");
  auto blend = CIFilter::filterWithName("CIMultiplyBlendMode");
  auto chained = CIImageWithCIFilters(picture, {effect, blend});
  auto byHand = picture->imageByApplyingFilter("CIColorInvert")
                    ->imageByApplyingFilter("CIMultiplyBlendMode", {{"inputBackgroundImage", picture}});
  const CGRect rect = CGRectMake(0, 0, 4, 4);
  EXPECT_EQ(test::renderFloat(chained, rect), test::renderFloat(byHand, rect));
  EXPECT_EQ(blend->valueForKey("inputBackgroundImage"), CIValue(picture));
  // A mask without an image cuts the current picture, over nothing: half-transparent where the mask is.
  auto mask = CIFilter::filterWithName("CIBlendWithAlphaMask", {{"inputMaskImage", overlay}});
  auto cut = test::renderFloat(CIImageWithCIFilters(picture, {mask}), rect, test::unmanaged());
  EXPECT_NEAR(cut[3], 0.5, 1e-6);
  EXPECT_EQ(mask->valueForKey("inputImage"), CIValue(picture));
  test::LogCapture log;
  EXPECT_EQ(CIImageWithBVFilters(nullptr, {}, {1, 1}), nullptr);
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(ChainStep, OpacityFadesTowardsThePictureFromBeforeTheFilter) {
  BVRegisterLibraryOperators();
  const CGRect rect = CGRectMake(0, 0, 2, 2);
  auto picture = CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6))->imageByCroppingToRect(rect);
  auto op = [](std::string_view name, const CIFilterParameters& p = {}) { return CIFilter::filterWithName(name, p); };
  auto half = [&] { return op("BVAlphaCIFilter", {{"inputAlpha", 0.5}}); };
  auto over = [](const CIImageRef& top, const CIImageRef& bottom) { return top->imageByCompositingOverImage(bottom); };
  auto fade = [&](const CIImageRef& image) {
    return image->imageByApplyingFilter("BVAlphaCIFilter", {{"inputAlpha", 0.5}});
  };
  auto render = [&](const CIImageRef& image) { return test::renderFloat(image, rect, test::unmanaged()); };
  auto inverted = picture->imageByApplyingFilter("CIColorInvert");
  // [effect, alpha]: the faded effect over the picture.
  EXPECT_EQ(render(CIImageWithCIFilters(picture, {op("CIColorInvert"), half()})),
            render(over(fade(inverted), picture)));
  // [effect, alpha, blend]: the blend of the faded effect over the picture.
  auto blended = CIImageWithCIFilters(picture, {op("CIColorInvert"), half(), op("CIMultiplyBlendMode")});
  EXPECT_EQ(render(blended),
            render(fade(inverted)->imageByApplyingFilter("CIMultiplyBlendMode", {{"inputBackgroundImage", picture}})));
  // [effect, alpha, effect2]: the faded effect is laid over the picture first, then effect2 runs on it.
  auto then = CIImageWithCIFilters(picture, {op("CIColorInvert"), half(), op("CIExposureAdjust", {{"inputEV", 1.0}})});
  EXPECT_EQ(render(then),
            render(over(fade(inverted), picture)->imageByApplyingFilter("CIExposureAdjust", {{"inputEV", 1.0}})));
}

}  // namespace
}  // namespace brenvia
