#include "cli_support.h"
#include "test_support.h"

#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>

namespace brenvia {
namespace {

// The upright picture every stored orientation shows: each pixel's colour names its position.
constexpr size_t kWidth = 24, kHeight = 16;
std::array<uint8_t, 4> upright(size_t x, size_t y) { return {uint8_t(10 * x), uint8_t(15 * y), 128, 255}; }

// The stored pixel (sx, sy) of a picture tagged with EXIF `orientation` that shows `upright`.
std::array<uint8_t, 4> stored(int orientation, size_t sx, size_t sy) {
  const size_t W = kWidth, H = kHeight;
  switch (orientation) {
    case 2: return upright(W - 1 - sx, sy);
    case 3: return upright(W - 1 - sx, H - 1 - sy);
    case 4: return upright(sx, H - 1 - sy);
    case 5: return upright(sy, sx);
    case 6: return upright(W - 1 - sy, sx);
    case 7: return upright(W - 1 - sy, H - 1 - sx);
    case 8: return upright(sy, H - 1 - sx);
    default: return upright(sx, sy);
  }
}

using Picture = std::function<std::array<uint8_t, 4>(size_t, size_t)>;

// The upright picture turned clockwise by `turns` quarter turns, with its size.
Picture turned(int turns, size_t& width, size_t& height) {
  Picture picture = upright;
  width = kWidth;
  height = kHeight;
  for (int t = 0; t < turns; ++t) {
    const size_t h = height;
    picture = [picture, h](size_t x, size_t y) { return picture(y, h - 1 - x); };
    std::swap(width, height);
  }
  return picture;
}

class CanvasOptions : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.path(name); }
  std::string recipe() const {
    std::ofstream(file("id.json")) << "[]";
    return file("id.json");
  }
  std::string storedPicture(int orientation) const {
    const bool sideways = orientation >= 5;
    auto bitmap = test::makeBitmap(sideways ? kHeight : kWidth, sideways ? kWidth : kHeight,
                                   [&](size_t x, size_t y) { return stored(orientation, x, y); });
    std::vector<uint8_t> bytes;
    imageio::encodePNG(*bitmap, {1.0, orientation, false}, bytes);
    const std::string path = file("o" + std::to_string(orientation) + ".png");
    imageio::writeFileAtomically(path, bytes);
    return path;
  }

  test::TempFolder folder_;
};

// Every stored orientation turned a quarter, and one sideways orientation turned by every quarter
// turn, cropped, gives exactly the pixels of the upright picture turned and cropped.
TEST_F(CanvasOptions, EveryOrientationTurnsAndCropsExactly) {
  const std::string id = recipe();
  std::vector<std::pair<int, int>> runs;
  for (int orientation = 1; orientation <= 8; ++orientation) runs.push_back({orientation, 1});
  for (int turns : {0, 2, 3}) runs.push_back({6, turns});
  for (auto [orientation, turns] : runs) {
    const std::string input = storedPicture(orientation);
    SCOPED_TRACE("orientation " + std::to_string(orientation) + ", turns " + std::to_string(turns));
    size_t width, height;
    const Picture expected = turned(turns, width, height);
    const size_t cx = 2, cy = 3, cw = width - 5, ch = height - 4;
    const std::string out = file("out.png");
    const std::string crop =
        std::to_string(cx) + "," + std::to_string(cy) + "," + std::to_string(cw) + "," + std::to_string(ch);
    auto result = test::runCli("render " + id + " " + input + " -o " + out + " --rotate " + std::to_string(turns * 90) +
                               " --crop " + crop);
    ASSERT_EQ(result.status, 0) << result.out;
    auto decoded = imageio::decodeFile(out);
    ASSERT_TRUE(decoded);
    const CGImageRef image = decoded->image;
    ASSERT_EQ(image->width(), cw);
    ASSERT_EQ(image->height(), ch);
    int worst = 0;
    for (size_t y = 0; y < ch; ++y)
      for (size_t x = 0; x < cw; ++x) {
        const auto want = expected(x + cx, y + cy);
        const auto got = test::rgbAt(*image, x, y);
        for (int c = 0; c < 3; ++c) worst = std::max(worst, std::abs(got[c] - want[c]));
      }
    EXPECT_LE(worst, 1);
  }
}

// Corrections keep the picture's size on both roads and in lossy formats, leave no empty corner, and
// the size follows a crop and --max-size.
TEST_F(CanvasOptions, CorrectionsFillTheFrameOnEveryRoad) {
  const std::string id = recipe();
  const std::string input = storedPicture(1);
  for (const std::string road : {"", " --cg"}) {
    for (const std::string name : {"s.jpg", "s.webp"}) {
      SCOPED_TRACE(name + road);
      auto result = test::runCli("render" + road + " " + id + " " + input + " -o " + file(name) +
                                 " --straighten 12 --keystone 0.2,-0.1 --stretch 0.1,0");
      ASSERT_EQ(result.status, 0) << result.out;
      auto decoded = imageio::decodeFile(file(name));
      ASSERT_TRUE(decoded);
      const CGImageRef image = decoded->image;
      ASSERT_EQ(image->width(), kWidth);
      ASSERT_EQ(image->height(), kHeight);
      for (auto [x, y] :
           {std::pair<size_t, size_t>{0, 0}, {kWidth - 1, 0}, {0, kHeight - 1}, {kWidth - 1, kHeight - 1}})
        EXPECT_GT(test::rgbAt(*image, x, y)[2], 100) << "corner " << x << "," << y;  // blue 128 everywhere
    }
  }
  ASSERT_EQ(test::runCli("render " + id + " " + input + " -o " + file("small.png") +
                         " --rotate 90 --crop 0,0,16,20 --max-size 10")
                .status,
            0);
  auto small = imageio::decodeFile(file("small.png"));
  ASSERT_TRUE(small);
  EXPECT_EQ(small->image->width(), 8u);
  EXPECT_EQ(small->image->height(), 10u);
}

TEST_F(CanvasOptions, ValuesOutsideThePictureOrRangeAreRefused) {
  const std::string id = recipe();
  const std::string input = storedPicture(6);  // shown 24 x 16
  const std::string out = file("out.png");
  const auto run = [&](const std::string& options) {
    return test::runCli("render " + id + " " + input + " -o " + out + " " + options);
  };
  auto outside = run("--rotate 90 --crop 0,0,24,16");
  EXPECT_EQ(outside.status, 1);
  EXPECT_NE(outside.out.find("the crop must lie inside the 16x24 picture"), std::string::npos) << outside.out;
  EXPECT_EQ(run("--crop 0,0,24,16").status, 0);
  for (const std::string bad :
       {"--crop -1,0,4,4", "--crop 1,2,3", "--straighten nan", "--straighten 60", "--keystone 0.2", "--rotate 45"}) {
    std::filesystem::remove(out);
    auto result = run(bad);
    EXPECT_NE(result.status, 0) << bad;
    EXPECT_FALSE(result.out.empty()) << bad;
    EXPECT_FALSE(std::filesystem::exists(out)) << bad;
  }
}

}  // namespace
}  // namespace brenvia
