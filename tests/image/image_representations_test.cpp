#include "test_support.h"

#include "image/ci_image_data_provider.h"
#include "image/image.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

// Removes the file at the end of the test.
struct Removed {
  std::string path;
  ~Removed() {
    std::error_code ignored;
    fs::remove(path, ignored);
  }
};

TEST(ImageRepresentations, JpegAndPngDataAndTemporaryFiles) {
  auto image = BVImage::initWithCGImage(test::solidBitmap(6, 4, {200, 40, 10, 255}));
  image->setImageOrientation(BVImageOrientationRight);
  auto jpeg = image->jpegRepresentation(0.9);
  ASSERT_TRUE(jpeg);
  auto decoded = imageio::decodeData(jpeg->data(), jpeg->size());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->image->width(), 6u);          // stored as it is, not turned
  EXPECT_NEAR(decoded->image->row(2)[0], 200, 3);  // RGB8

  auto jpegFile = image->writeToTemporaryJPEGFile();
  ASSERT_TRUE(jpegFile);
  Removed removeJpeg{*jpegFile};
  EXPECT_EQ(fs::path(*jpegFile).parent_path(), fs::temp_directory_path());
  EXPECT_TRUE(fs::path(*jpegFile).filename().string().starts_with("BVTemporaryImage-"));
  EXPECT_EQ(fs::path(*jpegFile).extension(), ".jpg");

  auto pngFile = image->writeToTemporaryPNGFile();
  ASSERT_TRUE(pngFile);
  Removed removePng{*pngFile};
  EXPECT_EQ(fs::path(*pngFile).extension(), ".png");
  EXPECT_EQ(imageio::readProperties(*pngFile)->value("Orientation", 0), 6);
  EXPECT_EQ(test::rgbAt(*imageio::decodeFile(*pngFile)->image, 5, 3), (std::array<int, 3>{200, 40, 10}));

  BVImage empty;
  EXPECT_FALSE(empty.writeToTemporaryPNGFile());
  EXPECT_FALSE(empty.jpegRepresentation());
}

TEST(ImageRepresentations, AverageColourIsTheMeanAndOpaque) {
  auto halves = test::makeBitmap(8, 8, [](size_t x, size_t) {
    return x < 4 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  });
  CGColorRef mean = BVImage::initWithCGImage(halves)->averageColor();
  ASSERT_TRUE(mean);
  EXPECT_NEAR(mean->components()[0], 0.5, 0.01);
  EXPECT_NEAR(mean->components()[1], 0.0, 0.01);
  EXPECT_NEAR(mean->components()[2], 0.5, 0.01);
  // Transparent pixels count as black, and the answer stays opaque.
  CGColorRef clear = BVImage::initWithCGImage(test::solidBitmap(3, 3, {255, 255, 255, 0}))->averageColor();
  EXPECT_EQ(clear->components(), (std::vector<double>{0, 0, 0, 1}));
  EXPECT_FALSE(BVImage().averageColor());
}

TEST(ImageDataProvider, TilesComeFromTheirPlaceInTheFile) {
  test::TempFolder folder;
  auto picture = test::makeBitmap(5, 4, [](size_t x, size_t y) {
    return std::array<uint8_t, 4>{uint8_t(x * 50), uint8_t(y * 60), 7, 255};
  });
  std::vector<uint8_t> png;
  ASSERT_TRUE(imageio::encodePNG(*picture, {}, png));
  folder.write("in.png", png);
  BVCIImageDataProvider provider(folder.path("in.png"), CGColorSpaceCreateDeviceRGB());
  EXPECT_EQ(provider.format(), kCIFormatARGB8);
  std::vector<uint8_t> tile(2 * 3 * 4, 1);
  provider.provideImageData(tile.data(), 8, 3, 1, 2, 3);
  // A, R, G, B of picture pixels (3, 1) and (4, 3).
  EXPECT_EQ(std::vector<uint8_t>(tile.begin(), tile.begin() + 4), (std::vector<uint8_t>{255, 150, 60, 7}));
  EXPECT_EQ(std::vector<uint8_t>(tile.end() - 4, tile.end()), (std::vector<uint8_t>{255, 200, 180, 7}));

  std::vector<uint8_t> untouched(16, 1);
  BVCIImageDataProvider(folder.path("missing.png"), nullptr).provideImageData(untouched.data(), 8, 0, 0, 2, 2);
  EXPECT_EQ(untouched, std::vector<uint8_t>(16, 1));
}

}  // namespace
}  // namespace brenvia
