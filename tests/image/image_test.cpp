#include "image/image.h"

#include "image/canvas_adjustment.h"
#include "image/graphics_utilities.h"

#include "test_support.h"

#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace brenvia {
namespace {

using Pixel = std::array<int, 4>;

constexpr Pixel kRed{255, 0, 0, 255};
constexpr Pixel kGreen{0, 255, 0, 255};
constexpr Pixel kBlue{0, 0, 255, 255};
constexpr Pixel kWhite{255, 255, 255, 255};

// A 32 x 16 picture with one colour per quadrant: red, green on top; blue, white below.
CGImageRef quadrants() {
  return test::makeBitmap(32, 16, [](size_t x, size_t y) {
    const Pixel& p = y < 8 ? (x < 16 ? kRed : kGreen) : (x < 16 ? kBlue : kWhite);
    return std::array<uint8_t, 4>{uint8_t(p[0]), uint8_t(p[1]), uint8_t(p[2]), uint8_t(p[3])};
  });
}

// Top left, top right, bottom left, bottom right, one pixel in from the edges.
std::array<Pixel, 4> corners(const CGImageRef& image) {
  size_t r = image->width() - 2, b = image->height() - 2;
  return {test::pixelAt(image, 1, 1), test::pixelAt(image, r, 1), test::pixelAt(image, 1, b),
          test::pixelAt(image, r, b)};
}

void expectCorners(const CGImageRef& image, const std::array<Pixel, 4>& expected) {
  ASSERT_TRUE(image);
  auto actual = corners(image);
  for (size_t i = 0; i < 4; ++i) {
    for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(actual[i][c], expected[i][c], 8) << "corner " << i << " channel " << c;
  }
}

std::vector<uint8_t> encodeQuadrants(bool png, int exifOrientation) {
  std::vector<uint8_t> bytes;
  imageio::EncodeOptions options{1.0, exifOrientation, false};
  EXPECT_TRUE(png ? imageio::encodePNG(*quadrants(), options, bytes)
                  : imageio::encodeJPEG(*quadrants(), options, bytes));
  return bytes;
}

class BVImageFiles : public ::testing::Test {
 protected:
  std::string writeQuadrants(const std::string& name, int exifOrientation) {
    return writeBytes(name, encodeQuadrants(name.ends_with(".png"), exifOrientation));
  }
  std::string writeBytes(const std::string& name, const std::vector<uint8_t>& bytes) {
    folder_.write(name, bytes);
    return folder_.path(name);
  }

  const Value coreImage = {{"storageAPI", "coreImage"}};
  test::TempFolder folder_;
};

TEST(BVImageOrientationTables, EveryOrientationMapsToItsEXIFNumberAndBack) {
  // Up, Down, Left, Right, then the mirrored four.
  const int exif[8] = {1, 3, 8, 6, 2, 4, 7, 5};
  for (int o = 0; o < 8; ++o) {
    EXPECT_EQ(BVImage::EXIFOrientationForImageOrientation(BVImageOrientation(o)), exif[o]) << o;
    EXPECT_EQ(BVImage::imageOrientationForEXIFOrientation(exif[o]), BVImageOrientation(o)) << o;
  }
}

TEST(BVImageOrientationTables, UnknownEXIFNumbersLogAndGiveUp) {
  for (int exif : {0, 9}) {
    test::LogCapture log;
    EXPECT_EQ(BVImage::imageOrientationForEXIFOrientation(exif), BVImageOrientationUp);
    EXPECT_EQ(log.lines.size(), 1u);
  }
}

TEST(BVImageOrientationTables, QuarterTurnsStepThroughTheRing) {
  EXPECT_EQ(BVImage::_imageOrientationWithAdjustment(BVImageOrientationRight, 1), BVImageOrientationDown);
  EXPECT_EQ(BVImage::_imageOrientationWithAdjustment(BVImageOrientationLeft, 1), BVImageOrientationUp);

  test::LogCapture log;
  EXPECT_EQ(BVImage::_imageOrientationWithAdjustment(BVImageOrientationLeftMirrored, 1),
            BVImageOrientationLeftMirrored);
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(BVImageSizes, QuarterTurnOrientationsSwapWidthAndHeight) {
  auto image = BVImage::initWithCIImage(CIImage::imageWithCGImage(test::solidBitmap(3000, 2000, {1, 2, 3, 255})));
  ASSERT_TRUE(image);
  for (int o = 0; o < 8; ++o) {
    SCOPED_TRACE(o);
    image->setImageOrientation(BVImageOrientation(o));
    bool turned = o == 2 || o == 3 || o == 6 || o == 7;
    EXPECT_NEAR(image->sizeWithOrientation().width, turned ? 2000 : 3000, 1e-3);
    EXPECT_NEAR(image->sizeWithOrientation().height, turned ? 3000 : 2000, 1e-3);
  }
  image->setImageOrientation(BVImageOrientationRight);
  image->setScaleAdjustment(0.5);
  EXPECT_NEAR(image->sizeWithAdjustments().width, 1000, 1e-3);
  EXPECT_NEAR(image->sizeWithAdjustments().height, 1500, 1e-3);
  EXPECT_FALSE(image->isSquare());
  // Squareness is a property of the stored size.
  auto square = BVImage::initWithCGImage(test::solidBitmap(100, 100, {0, 0, 0, 255}));
  square->setImageOrientation(BVImageOrientationRight);
  EXPECT_TRUE(square->isSquare());
}

TEST(BVImageBacking, EmptyAndNullSources) {
  BVImage empty;
  EXPECT_FALSE(empty.adjustedCIImage());
  EXPECT_FALSE(empty.copy());

  EXPECT_FALSE(BVImage::initWithCGImage(nullptr));
  EXPECT_FALSE(BVImage::initWithCIImage(nullptr));
}

TEST(BVImageBacking, CopiesKeepTheSettingsAndPreferTheEngineImage) {
  auto disparity = CIImage::imageWithCGImage(test::solidBitmap(4, 4, {9, 9, 9, 255}));
  auto image = BVImage::initWithCIImage(CIImage::imageWithCGImage(quadrants()), disparity, nullptr);
  ASSERT_TRUE(image && image->CGImage());  // rendered: now backed by the bitmap too
  image->setScale(2);
  image->setImageOrientation(BVImageOrientationDown);
  image->setScaleAdjustment(0.25);
  auto copy = image->copy();
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->backingStorage(), BVImage::kBackingStorageCoreImage);
  EXPECT_EQ(copy->CIImage(), image->CIImage());
  EXPECT_EQ(copy->scale(), 2);
  EXPECT_EQ(copy->imageOrientation(), BVImageOrientationDown);
  EXPECT_EQ(copy->scaleAdjustment(), 0.25);
  EXPECT_EQ(copy->disparityImageStorage(), disparity);
  CGImageRef bitmap = quadrants();
  EXPECT_EQ(BVImage::initWithCGImage(bitmap)->copy()->CGImage(), bitmap);
}

TEST(BVImageBacking, OrientationPropertyOfAnEngineImageIsRead) {
  auto picture = CIImage::imageWithCGImage(quadrants());
  test::LogCapture log;
  EXPECT_EQ(BVImage::initWithCIImage(picture->imageBySettingProperties({{"Orientation", 6}}))->imageOrientation(),
            BVImageOrientationRight);
  EXPECT_EQ(
      BVImage::initWithCIImage(picture->imageBySettingProperties({{"inputImageOrientation", 5}}))->imageOrientation(),
      BVImageOrientationRightMirrored);
  EXPECT_EQ(BVImage::initWithCIImage(picture)->imageOrientation(), BVImageOrientationUp);
  EXPECT_EQ(BVImage::initWithCIImage(picture->imageBySettingProperties({{"Orientation", 1e300}}))->imageOrientation(),
            BVImageOrientationUp);
  EXPECT_TRUE(log.lines.empty());
}

TEST(BVImageAdjusted, OrientationIsAppliedOnlyWithAGeometryAdjustment) {
  auto picture = CIImage::imageWithCGImage(quadrants());
  auto image = BVImage::initWithCIImage(picture);
  image->setImageOrientation(BVImageOrientationRight);
  EXPECT_EQ(image->adjustedCIImage(), picture);

  image->setScaleAdjustment(0.5);
  auto adjusted = image->adjustedCIImage();
  ASSERT_TRUE(adjusted);
  EXPECT_NEAR(adjusted->extent().size.width, 8, 1e-9);
  EXPECT_NEAR(adjusted->extent().size.height, 16, 1e-9);
  expectCorners(CIContext::context()->createCGImage(adjusted, adjusted->extent()), {kBlue, kRed, kWhite, kGreen});
}

TEST(BVImageAdjusted, FlatAdjustedPicturesAndUprightPixels) {
  // Turned right for display, a quarter turn more, the left half of that kept, then halved in size.
  auto image = BVImage::initWithCIImage(CIImage::imageWithCGImage(quadrants()));
  image->setImageOrientation(BVImageOrientationRight);
  auto flat =
      image->imageWithAdjustment(BVCanvasAdjustment::adjustmentWithCrop(BVImageCropMake(0, 0, 16, 16, 0), 1), 0.5);
  ASSERT_TRUE(flat);
  EXPECT_EQ(flat->imageOrientation(), BVImageOrientationUp);
  EXPECT_FALSE(flat->canvasAdjustment());
  ASSERT_EQ(flat->size().width, 8);
  ASSERT_EQ(flat->size().height, 8);
  // White then green on the left: the picture upside down.
  EXPECT_NEAR(test::pixelAt(flat->CGImage(), 1, 1)[0], 255, 8);
  EXPECT_NEAR(test::pixelAt(flat->CGImage(), 1, 1)[2], 255, 8);
  EXPECT_NEAR(test::pixelAt(flat->CGImage(), 1, 6)[1], 255, 8);

  for (bool bitmap : {true, false}) {
    SCOPED_TRACE(bitmap ? "bitmap" : "engine image");
    auto turned = bitmap ? BVImage::initWithCGImage(quadrants())
                         : BVImage::initWithCIImage(CIImage::imageWithCGImage(quadrants()));
    turned->setImageOrientation(BVImageOrientationRight);
    auto upright = turned->imageWithUpOrientation();
    EXPECT_EQ(turned->imageOrientation(), BVImageOrientationRight);
    EXPECT_EQ(upright->imageOrientation(), BVImageOrientationUp);
    CIImageRef engine = upright->CIImage();
    auto pixels = CIContext::context()->createCGImage(engine, engine->extent());
    ASSERT_EQ(pixels->width(), 16u);
    expectCorners(pixels, {kBlue, kRed, kWhite, kGreen});
  }
}

TEST(BVImageAdjusted, ScaleAdjustmentFillsOrFitsTheTarget) {
  auto image = BVImage::initWithCGImage(test::solidBitmap(200, 100, {1, 2, 3, 255}));
  image->setScaleAdjustmentForTargetSize({100, 100}, BVImageScalingModeFill);
  EXPECT_EQ(image->scaleAdjustment(), 1.0);
  image->setScaleAdjustmentForTargetSize({100, 100}, BVImageScalingModeFit);
  EXPECT_EQ(image->scaleAdjustment(), 0.5);
  EXPECT_THROW(image->setScaleAdjustmentForTargetSize({100, 100}, BVImageScalingModeStretch), std::invalid_argument);
  EXPECT_EQ(image->scaleAdjustment(), 0.5);
}

// A bitmap load keeps the stored pixels and ignores the orientation; an engine load takes the
// orientation as metadata, and its render accessor gives the stored pixels too.
TEST_F(BVImageFiles, LoadsKeepTheStoredPixels) {
  struct Case {
    std::string name;
    int exif;
    bool engine;
    BVImageOrientation orientation;
  };
  for (const Case& c :
       {Case{"bitmap.jpg", 6, false, BVImageOrientationUp}, Case{"right.jpg", 6, true, BVImageOrientationRight},
        Case{"left.png", 8, true, BVImageOrientationLeft}}) {
    SCOPED_TRACE(c.name);
    test::LogCapture log;
    const Value options = c.engine ? coreImage : Value::object();
    auto image = BVImage::initWithContentsOfFile(writeQuadrants(c.name, c.exif), options);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->backingStorage(),
              c.engine ? BVImage::kBackingStorageCoreImage : BVImage::kBackingStorageCoreGraphics);
    EXPECT_EQ(image->imageOrientation(), c.orientation);
    EXPECT_EQ(image->size().width, 32);
    EXPECT_TRUE(image->colorSpace());
    // The decoded bitmap keeps the file's layout; render it to compare pixels.
    CIImageRef picture = image->CIImage();
    ASSERT_TRUE(picture);
    expectCorners(c.engine ? image->CGImage() : CIContext::context()->createCGImage(picture, picture->extent()),
                  {kRed, kGreen, kBlue, kWhite});
    EXPECT_TRUE(log.lines.empty());
  }
}

TEST_F(BVImageFiles, AppliedOrientationTurnsThePixelsForAllEightOrientations) {
  // Display corners (top left, top right, bottom left, bottom right) for each EXIF number.
  const std::array<std::array<Pixel, 4>, 9> expected{{
      {},
      {kRed, kGreen, kBlue, kWhite},
      {kGreen, kRed, kWhite, kBlue},
      {kWhite, kBlue, kGreen, kRed},
      {kBlue, kWhite, kRed, kGreen},
      {kRed, kBlue, kGreen, kWhite},
      {kBlue, kRed, kWhite, kGreen},
      {kWhite, kGreen, kBlue, kRed},
      {kGreen, kWhite, kRed, kBlue},
  }};
  Value options = coreImage;
  options["applyOrientation"] = true;
  for (int exif = 1; exif <= 8; ++exif) {
    SCOPED_TRACE(exif);
    auto image = BVImage::initWithContentsOfFile(writeQuadrants("o" + std::to_string(exif) + ".jpg", exif), options);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->imageOrientation(), BVImageOrientationUp);
    EXPECT_EQ(image->size().width, exif > 4 ? 16 : 32);
    expectCorners(image->CGImage(), expected[exif]);
  }
}

TEST_F(BVImageFiles, AMissingFileOrNoDataGivesNullSilently) {
  test::LogCapture log;
  for (const Value& options : {Value::object(), coreImage}) {
    EXPECT_FALSE(BVImage::initWithContentsOfFile(folder_.path("missing.jpg"), options));
    EXPECT_FALSE(BVImage::initWithData({}, options));
  }
  EXPECT_TRUE(log.lines.empty());
}

// Undecodable files and data are logged. Every load gives an empty picture, except a bitmap load
// from data, which gives nothing; the engine load also logs the missing orientation.
TEST_F(BVImageFiles, UndecodableInputIsLogged) {
  std::vector<uint8_t> garbage(300);
  std::generate(garbage.begin(), garbage.end(), [n = 7u]() mutable { return uint8_t(n = n * 1103515245u + 12345u); });
  const std::vector<uint8_t> truncated{0xff, 0xd8, 0xff, 0x00, 1, 2, 3};
  for (const std::string& path : {writeBytes("garbage.jpg", garbage), writeBytes("empty.png", {}), std::string()}) {
    for (bool engine : {false, true}) {
      SCOPED_TRACE(path + (engine ? " engine" : " bitmap"));
      test::LogCapture log;
      const Value options = engine ? coreImage : Value::object();
      auto image =
          path.empty() ? BVImage::initWithData(truncated, options) : BVImage::initWithContentsOfFile(path, options);
      ASSERT_EQ(bool(image), engine || !path.empty());
      if (image) {
        EXPECT_EQ(image->backingStorage(), BVImage::kBackingStorageNone);
        EXPECT_EQ(image->size().width, 0);
      }
      ASSERT_FALSE(log.lines.empty());
      if (engine) EXPECT_EQ(log.lines.back(), "[CIImage+BVCanvasAdjustment] Unknown exif image orientation: 0");
      if (!engine) EXPECT_EQ(log.lines.size(), 1u);
      if (!engine && !path.empty())
        EXPECT_TRUE(log.lines[0].starts_with("[ImageIO] Could not read `" + path + "`")) << log.lines[0];
    }
  }
}

// Applying the orientation on load and reading the tag of each format are shared with the file loads.
TEST_F(BVImageFiles, BothDataLoadsTakeTheOrientationOfTheData) {
  auto bytes = encodeQuadrants(false, 6);
  test::LogCapture log;
  auto bitmap = BVImage::initWithData(bytes);
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(bitmap->backingStorage(), BVImage::kBackingStorageCoreGraphics);
  EXPECT_EQ(bitmap->imageOrientation(), BVImageOrientationRight);
  EXPECT_EQ(bitmap->size().width, 32);
  auto engine = BVImage::initWithData(bytes, coreImage);
  ASSERT_TRUE(engine);
  EXPECT_EQ(engine->backingStorage(), BVImage::kBackingStorageCoreImage);
  EXPECT_EQ(engine->imageOrientation(), BVImageOrientationRight);
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
}  // namespace brenvia
