#include "test_support.h"

#include "operators/chroma_key_filter.h"
#include "operators/library_operators.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

#include <cstring>

namespace brenvia {
namespace {

constexpr int kSide = kBVChromaKeyCubeDimension;

// The cube cell of the colour (r, g, b)/63.
std::array<float, 4> cell(const CIData& cube, int r, int g, int b) {
  std::array<float, 4> cell;
  std::memcpy(cell.data(), cube->data() + ((size_t(b) * kSide + size_t(g)) * kSide + size_t(r)) * 16, 16);
  return cell;
}

float cellAlpha(const CIData& cube, int r, int g, int b) { return cell(cube, r, g, b)[3]; }

size_t removedCells(const CIData& cube) {
  size_t removed = 0;
  for (int b = 0; b < kSide; ++b)
    for (int g = 0; g < kSide; ++g)
      for (int r = 0; r < kSide; ++r) removed += cellAlpha(cube, r, g, b) == 0;
  return removed;
}

TEST(BVChromaKeyCIFilter, HueRunsFromMinusSixtyTo300) {
  for (auto [r, g, b, hue] : {std::array{0., 1., 0., 120.}, {0., 0., 1., 240.}, {1., 0., 0., 0.}, {1., 0., 1., -60.},
                              {0.5, 0.5, 0.5, 0.}})
    EXPECT_EQ(BVChromaKeyConvertRGBToHSV(r, g, b).hue, hue) << r << " " << g << " " << b;
  BVHSV dim = BVChromaKeyConvertRGBToHSV(0.2, 0.4, 0.1);
  EXPECT_DOUBLE_EQ(dim.saturation, 0.75);
  EXPECT_DOUBLE_EQ(dim.value, 0.4);
  EXPECT_EQ(BVChromaKeyConvertRGBToHSV(0, 0, 0).saturation, 0);
}

// One cube per key hue and threshold, shared.
TEST(BVChromaKeyCIFilter, CubeRemovesTheOpenHueBandOnly) {
  const CIData green = BVChromaKeyColorCube(CIColor(0, 1, 0), 0.1);
  EXPECT_EQ(green, BVChromaKeyColorCube(CIColor(0, 0.5, 0), 0.1));
  EXPECT_NE(green, BVChromaKeyColorCube(CIColor(0, 1, 0), 0.2));
  ASSERT_EQ(green->size(), size_t(kSide) * kSide * kSide * 16);
  EXPECT_EQ(cellAlpha(green, 0, 63, 0), 0);
  EXPECT_EQ(cellAlpha(green, 10, 20, 5), 0);  // a dark green goes like a bright one
  EXPECT_EQ(cellAlpha(green, 32, 32, 32), 1);
  // Hues 84 to 156, both ends open: yellow (60) and cyan (180) stay, (36, 63, 0) at hue 85.7 goes,
  // (42, 63, 0) at hue 80 stays.
  EXPECT_EQ(cellAlpha(green, 63, 63, 0), 1);
  EXPECT_EQ(cellAlpha(green, 0, 63, 63), 1);
  EXPECT_EQ(cellAlpha(green, 36, 63, 0), 0);
  EXPECT_EQ(cellAlpha(green, 42, 63, 0), 1);
  EXPECT_EQ(cell(green, 50, 40, 5), (std::array{float(50 / 63.0), float(40 / 63.0), float(5 / 63.0), 1.0f}));

  EXPECT_EQ(removedCells(BVChromaKeyColorCube(CIColor(0, 1, 0), 0)), 0u);
  // A red key takes every grey with it: grey has hue 0.
  const CIData red = BVChromaKeyColorCube(CIColor(1, 0, 0), 0.1);
  EXPECT_EQ(cellAlpha(red, 0, 0, 0), 0);
  EXPECT_EQ(cellAlpha(red, 63, 63, 63), 0);
  // No key colour reads as black, hue 0.
  EXPECT_EQ(removedCells(BVChromaKeyColorCube(CIColor(), 0.1)), removedCells(red));
}

// A studio shot: a noisy, unevenly lit green backdrop with an orange subject, through a real JPEG
// round trip so the edges carry compression ringing.
CGImageRef greenScreenPhoto(size_t w, size_t h) {
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0, 6);
  CGImageRef shot = test::makeBitmap(w, h, [&](size_t x, size_t y) {
    const double dx = double(x) - w / 2.0, dy = double(y) - h / 2.0, light = 1 - 0.25 * double(x) / double(w);
    const bool subject = dx * dx + dy * dy < double(h * h) / 9;
    auto channel = [&](double v) { return uint8_t(std::clamp(v + noise(rng), 0.0, 255.0)); };
    if (subject) return std::array<uint8_t, 4>{channel(220), channel(120), channel(40), 255};
    return std::array<uint8_t, 4>{channel(40 * light), channel(180 * light), channel(60 * light), 255};
  });
  imageio::EncodeOptions options;
  options.quality = 0.9;
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(imageio::encodeJPEG(*shot, options, bytes));
  return imageio::decodeData(bytes.data(), bytes.size())->image;
}

TEST(BVChromaKeyCIFilter, KeysAGreenScreenShotOverANewBackground) {
  BVRegisterLibraryOperators();
  const size_t w = 96, h = 64;
  auto photo = CIImage::imageWithCGImage(greenScreenPhoto(w, h));
  const CGRect rect = CGRectMake(0, 0, w, h);
  auto backdrop = CIImage::imageWithColor(CIColor(0, 0, 1))->imageByCroppingToRect(rect);
  auto keyed = photo->imageByApplyingFilter(
      "BVChromaKeyCIFilter", {{"inputBackgroundImage", backdrop}, {"inputChromaKeyColor", CIColor(0.2, 0.7, 0.3)}});
  ASSERT_TRUE(keyed);
  auto out = test::renderFloat(keyed, rect);
  auto at = [&](size_t x, size_t y) { return &out[(y * w + x) * 4]; };
  size_t blueInBackdrop = 0, backdropPixels = 0;
  for (size_t y = 0; y < h; ++y) {
    for (size_t x = 0; x < w; ++x) {
      const double dx = double(x) - w / 2.0, dy = double(y) - h / 2.0;
      if (dx * dx + dy * dy < double(h * h) / 16) {
        ASSERT_GT(at(x, y)[0], 0.4f) << x << "," << y;  // the subject stays orange
        ASSERT_LT(at(x, y)[2], 0.2f);
      } else if (dx * dx + dy * dy > double(h * h) / 4) {
        ++backdropPixels;
        blueInBackdrop += at(x, y)[2] > 0.99f && at(x, y)[1] < 0.01f;
      }
    }
  }
  EXPECT_GT(double(blueInBackdrop), 0.98 * double(backdropPixels));
  EXPECT_FALSE(CIFilter::filterWithName("BVChromaKeyCIFilter")->outputImage());
}

}  // namespace
}  // namespace brenvia
