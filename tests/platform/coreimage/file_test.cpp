#include "test_support.h"

#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

class ImageFiles : public ::testing::Test {
 protected:
  // A 64 x 48 gradient written as a JPEG carrying the given orientation.
  std::string writeGradient(int orientation) {
    auto bitmap = test::makeBitmap(64, 48, [](size_t x, size_t y) {
      return std::array<uint8_t, 4>{uint8_t(x * 4), uint8_t(y * 5), 128, 255};
    });
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(imageio::encodeJPEG(*bitmap, {1.0, orientation, false}, bytes));
    EXPECT_TRUE(imageio::writeFileAtomically(folder_.path("gradient.jpg"), bytes));
    return folder_.path("gradient.jpg");
  }

  test::TempFolder folder_;
};

// Properties come from the file, and the orientation is carried through, never applied.
TEST_F(ImageFiles, JpegRoundTripKeepsPixelsAndOrientation) {
  auto image = CIImage::imageWithContentsOfFile(writeGradient(6));
  ASSERT_TRUE(image);
  EXPECT_TRUE(CGRectEqualToRect(image->extent(), CGRectMake(0, 0, 64, 48)));
  EXPECT_EQ(image->properties()["PixelWidth"], 64);
  std::string out = folder_.path("out.jpg");
  std::string error;
  ASSERT_TRUE(CIContext::context()->writeJPEGRepresentationOfImage(image, out, CGColorSpaceCreateDeviceRGB(), {1.0},
                                                                   &error))
      << error;
  auto again = CIImage::imageWithContentsOfFile(out);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->properties()["Orientation"], 6);
  auto a = test::renderFloat(image, image->extent()), b = test::renderFloat(again, again->extent());
  ASSERT_EQ(a.size(), b.size());
  double worst = 0;
  for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, double(std::abs(a[i] - b[i])));
  EXPECT_LT(worst, 0.02);
}

TEST_F(ImageFiles, FailedWritesLeaveNothingBehind) {
  auto image = CIImage::imageWithColor(CIColor(1, 0, 0))->imageByCroppingToRect(CGRectMake(0, 0, 8, 8));
  std::string error;
  std::string missingFolder = folder_.path("no-such-folder/out.jpg");
  EXPECT_FALSE(CIContext::context()->writeJPEGRepresentationOfImage(image, missingFolder, nullptr, {}, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(CIContext::context()->JPEGRepresentationOfImage(CIImage::imageWithColor(CIColor(1, 0, 0)), nullptr));
  EXPECT_TRUE(folder_.entries().empty());
}

TEST_F(ImageFiles, SmallerDecodesForSmallerOutputs) {
  auto image = CIImage::imageWithContentsOfFile(writeGradient(1), 16);
  ASSERT_TRUE(image);
  EXPECT_TRUE(CGRectEqualToRect(image->extent(), CGRectMake(0, 0, 16, 12)));
  EXPECT_EQ(image->properties()["PixelWidth"], 64);
  test::LogCapture log;
  EXPECT_EQ(CIImage::imageWithContentsOfFile(folder_.path("missing.jpg")), nullptr);
  EXPECT_EQ(log.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia
