// Our reading and application of an ACV file against a second, independent implementation: the
// FFmpeg command's curves filter, which reads the same files.
#include "catalogue/curves_filter.h"

#include "curves/acv_test_support.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>

namespace brenvia {
namespace {

// Every level on each channel, the channels shifted against each other from row to row.
CGImageRef rampImage() {
  auto image = CGImage::allocate(256, 3, CGPixelFormat::RGB8, CGColorSpaceCreateDeviceRGB());
  for (size_t y = 0; y < 3; ++y)
    for (size_t x = 0; x < 256; ++x)
      for (size_t c = 0; c < 3; ++c) image->mutableRow(y)[3 * x + c] = uint8_t((x + 85 * ((y + c) % 3)) % 256);
  return image;
}

class FFmpegCurves : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("ffmpeg -version > /dev/null 2>&1") != 0) GTEST_SKIP() << "the ffmpeg command is not installed";
    std::vector<uint8_t> png;
    ASSERT_TRUE(imageio::encodePNG(*rampImage(), {}, png));
    std::ofstream(folder.path("ramp.png"), std::ios::binary).write(reinterpret_cast<const char*>(png.data()),
                                                                    std::streamsize(png.size()));
  }

  void writeACV(const std::string& name, const std::vector<BVPointList>& curves) {
    BVData bytes = acv(4, curves);
    std::ofstream(folder.path(name), std::ios::binary).write(reinterpret_cast<const char*>(bytes->data()),
                                                             std::streamsize(bytes->size()));
  }

  CGImageRef theirs(const std::string& acvName) {
    const std::string command = "ffmpeg -v error -y -i " + folder.path("ramp.png") + " -vf curves=psfile=" +
                                folder.path(acvName) + " -frames:v 1 " + folder.path("theirs.png");
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return imageio::decodeFile(folder.path("theirs.png"))->image;
  }

  CGImageRef ours(const std::string& acvName, bool bitmapRoad) {
    auto filter = std::make_shared<BVCurvesFilter>();
    filter->initWithParameters({{"acvFileName", acvName}}, folder.path(""));
    BVImageProcessorOptions options;
    options.renderWithCoreGraphics = bitmapRoad;
    return BVImageProcessor::initWithFilters({filter}, options)->process(BVImage::initWithCGImage(rampImage()))->CGImage();
  }

  test::TempFolder folder;
};

const BVPointList kDiagonal{{0, 0}, {255, 255}};
const BVPointList kRed{{0, 20}, {70, 60}, {180, 215}, {255, 245}};
const BVPointList kGreen{{0, 0}, {128, 150}, {255, 255}};
const BVPointList kBlue{{30, 0}, {120, 110}, {255, 230}};

// The drawing road composes the master curve after each channel's, as the other implementation
// does; the colour cube adds the master curve in instead, so it is compared with a straight master.
TEST_F(FFmpegCurves, OursAgreeWithTheirs) {
  writeACV("look.acv", {{{0, 0}, {64, 56}, {192, 204}, {255, 255}}, kRed, kGreen, kBlue});
  EXPECT_LE(test::largestColourDifference(*ours("look.acv", true), *theirs("look.acv")), 2);
  writeACV("channels.acv", {kDiagonal, kRed, kGreen, kBlue});
  EXPECT_LE(test::largestColourDifference(*ours("channels.acv", false), *theirs("channels.acv")), 2);
}

}  // namespace
}  // namespace brenvia
