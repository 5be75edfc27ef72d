// Masks from recipe dictionaries: a red colour layer over a grey picture shows where the mask lets
// it through, from a gradient, a picture file with each scaling, the portrait matte, or the depth.
#include "masks/recipe_mask.h"

#include "image/image.h"
#include "platform/coreimage/ci_context.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>

namespace brenvia {
namespace {

constexpr size_t kWidth = 64, kHeight = 32;

// An untagged grey map of the picture's size, as depth and matte are stored.
CIImageRef greyMap(const std::function<uint8_t(size_t x)>& value) {
  auto map = CGImage::allocate(kWidth, kHeight, CGPixelFormat::Gray8, CGColorSpaceRef());
  for (size_t y = 0; y < kHeight; ++y)
    for (size_t x = 0; x < kWidth; ++x) map->mutableRow(y)[x] = value(x);
  return CIImage::imageWithCGImage(map);
}

// Grey, with a disparity that ramps from far at the left to near at the right, and a matte that
// holds the right half.
std::shared_ptr<BVImage> portrait(bool withDepth) {
  CIImageRef grey = CIImage::imageWithCGImage(test::solidBitmap(kWidth, kHeight, {128, 128, 128, 255}));
  if (!withDepth) return BVImage::initWithCIImage(grey);
  return BVImage::initWithCIImage(grey, greyMap([](size_t x) { return uint8_t(x * 255 / (kWidth - 1)); }),
                                  greyMap([](size_t x) { return uint8_t(x < kWidth / 2 ? 0 : 255); }));
}

class RecipeMask : public ::testing::Test {
 protected:
  // How far each column of the middle row went from grey to red: 0 untouched, 1 fully red.
  std::vector<double> redShare(const Value& mask, bool withDepth = true, bool bitmapRoad = false) {
    const Value filter = {{"type", "color"}, {"colorHex", "#ff0000"}, {"mode", "Normal"}, {"mask", mask}};
    BVImageProcessorOptions options;
    options.renderWithCoreGraphics = bitmapRoad;
    auto processor = BVImageProcessor::initWithFilters(
        BVFilter::filtersWithArray(Value::array({filter}), folder_.path("")), options);
    auto out = processor->process(portrait(withDepth));
    std::vector<double> shares;
    if (!out || !out->CGImage()) return shares;
    for (size_t x = 0; x < kWidth; ++x)
      shares.push_back((test::rgbAt(*out->CGImage(), x, kHeight / 2)[0] - 128) / 127.0);
    return shares;
  }
  void writeMaskPicture(const std::string& name, size_t w, size_t h) {
    auto picture = test::makeBitmap(w, h, [w](size_t x, size_t) {
      return std::array<uint8_t, 4>{255, 255, 255, uint8_t(x < w / 2 ? 255 : 0)};
    });
    std::vector<uint8_t> bytes;
    imageio::encodePNG(*picture, {}, bytes);
    imageio::writeFileAtomically(folder_.path(name), bytes);
  }

  test::TempFolder folder_;
};

TEST_F(RecipeMask, EmptyDictionariesGiveNoMask) {
  EXPECT_FALSE(BVMask::initWithDictionary(Value::object()));
  EXPECT_FALSE(BVMask::initWithDictionary({{"scaling", {1, 2}}}));
  EXPECT_TRUE(BVMask::initWithDictionary({{"imageName", "mask.png"}}));
  const std::vector<double> everywhere = redShare(Value::object());
  ASSERT_EQ(everywhere.size(), kWidth);
  EXPECT_NEAR(everywhere[0], 1.0, 0.02);
  EXPECT_NEAR(everywhere[kWidth - 1], 1.0, 0.02);
}

// The gradient's alpha masks by default and its grey when `grayscale` says so, on both roads.
TEST_F(RecipeMask, GradientMasksOnBothRoads) {
  const Value byAlpha = {{"gradient", {{"colors", {"#ffffffff", "#ffffff00"}}}}};
  const Value byGrey = {{"grayscale", true}, {"gradient", {{"colors", {"#000000", "#ffffff"}}}}};
  for (bool bitmapRoad : {false, true}) {
    SCOPED_TRACE(bitmapRoad ? "drawing road" : "engine road");
    const std::vector<double> alpha = redShare(byAlpha, false, bitmapRoad);
    ASSERT_EQ(alpha.size(), kWidth);
    EXPECT_GT(alpha[0], 0.95);
    EXPECT_LT(alpha[kWidth - 1], 0.05);
    EXPECT_GT(alpha[20], alpha[44]);
    if (bitmapRoad) continue;
    const std::vector<double> grey = redShare(byGrey, false);
    EXPECT_LT(grey[0], 0.05);
    EXPECT_GT(grey[kWidth - 1], 0.95);
  }
}

// A square picture, opaque on its left half, over the 64 x 32 canvas: stretched it covers x < 32,
// fitted it stands 32 wide in the middle (opaque from 16 to 32), filled it is 64 wide.
TEST_F(RecipeMask, PictureFollowsItsScaling) {
  writeMaskPicture("square.png", 16, 16);
  struct Case {
    const char* scaling;
    bool at8, at24, at40;
  };
  for (const Case& c :
       {Case{"stretch", true, true, false}, Case{"fit", false, true, false}, Case{"fill", true, true, false}}) {
    SCOPED_TRACE(c.scaling);
    const std::vector<double> shares = redShare({{"imageName", "square"}, {"scaling", c.scaling}});
    ASSERT_EQ(shares.size(), kWidth);
    EXPECT_EQ(shares[8] > 0.5, c.at8);
    EXPECT_EQ(shares[24] > 0.5, c.at24);
    EXPECT_EQ(shares[40] > 0.5, c.at40);
  }
}

// The matte and the depth are inverted, so the effect falls around the subject.
TEST_F(RecipeMask, MatteAndDepthKeepTheSubject) {
  const std::vector<double> matte = redShare({{"preferEmbedded", "portraitMatte"}});
  ASSERT_EQ(matte.size(), kWidth);
  EXPECT_GT(matte[10], 0.95);
  EXPECT_LT(matte[50], 0.05);

  const std::vector<double> depth = redShare({{"preferEmbedded", "disparity"}});
  EXPECT_GT(depth[0], 0.95);
  EXPECT_LT(depth[kWidth - 1], 0.05);
  EXPECT_GT(depth[16], depth[48]);
}

// Focused at the centre, where the disparity is about 0.6: the band in focus is untouched and the
// effect grows over 1 / slope on each side; a preset without autofocus is the plain depth.
TEST_F(RecipeMask, DepthPresetsFocusAtTheCentre) {
  struct Case {
    const char* preset;
    double field, slope;
  };
  const double focal = 38 * 255 / 63 / 255.0;  // the largest disparity of the centre box, column 38
  for (const Case& c : {Case{"deep", 0.5, 4.0}, Case{"shallow", 0.05, 8.0}}) {
    SCOPED_TRACE(c.preset);
    const std::vector<double> shares = redShare(
        {{"preferEmbedded", "disparity"}, {"disparityDepthPreset", c.preset}, {"disparityAutofocus", "center"}});
    ASSERT_EQ(shares.size(), kWidth);
    for (size_t x : {0, 20, 30, 38, 45, 56, 63}) {
      const double d = double(x * 255 / (kWidth - 1)) / 255.0;
      const double inFocus = std::clamp(std::min(c.slope * (d - focal) + 1 + c.slope * c.field / 2,
                                                 c.slope * (focal - d) + 1 + c.slope * c.field / 2),
                                        0.0, 1.0);
      // The blend mixes in linear light, so only the ends of the ramp are compared closely.
      if (inFocus > 0.99) EXPECT_LT(shares[x], 0.03) << "column " << x;
      if (inFocus < 0.01) EXPECT_GT(shares[x], 0.97) << "column " << x;
    }
  }
  const std::vector<double> presetOnly = redShare({{"preferEmbedded", "disparity"}, {"disparityDepthPreset", "deep"}});
  EXPECT_EQ(presetOnly, redShare({{"preferEmbedded", "disparity"}}));
}

// Without depth the mask falls back to its picture, and to no mask at all without one.
TEST_F(RecipeMask, WithoutDepthFallsBack) {
  writeMaskPicture("half.png", 64, 32);
  const std::vector<double> picture =
      redShare({{"preferEmbedded", "disparity"}, {"imageName", "half"}}, /*withDepth=*/false);
  ASSERT_EQ(picture.size(), kWidth);
  EXPECT_GT(picture[10], 0.95);
  EXPECT_LT(picture[50], 0.05);
  const std::vector<double> none = redShare({{"preferEmbedded", "portraitMatte"}}, /*withDepth=*/false);
  EXPECT_GT(none[50], 0.95);
}

TEST(BVDisparityMaskFocus, PresetsAndFocalValues) {
  const BVDisparityMaskFocus deep = BVDisparityMaskFocus::withPreset(0.5, "deep");
  EXPECT_EQ(deep.field, 0.5);
  EXPECT_EQ(deep.slope, 4.0);
  EXPECT_EQ(BVDisparityMaskFocus::withPreset(0.5, "anything").field, 0.2);
  CIImageRef ramp = greyMap([](size_t x) { return uint8_t(x * 4); });
  EXPECT_NEAR(BVDisparityMaskFocus::focalValueIn({0.25, 0.25, 0, 0}, ramp), 20 * 4 / 255.0, 1e-9);
  EXPECT_NEAR(BVDisparityMaskFocus::focalValueIn({0, 0, 0.5, 1}, ramp), 31 * 4 / 255.0, 1e-9);
}

// The portrait with a depth map that puts its face near and everything else far: focused on the
// face or the eyes the face stays as it is and the rest turns red; focused at the centre, below
// the face, the other way round.
TEST(RecipeMaskFaces, DepthFocusesOnTheFaceOrTheCentre) {
  CIImageRef portrait = CIImage::imageWithContentsOfFile(std::string(BRENVIA_TEST_DATA) + "/astronaut.png");
  auto depth = CGImage::allocate(512, 512, CGPixelFormat::Gray8, CGColorSpaceRef());
  for (size_t y = 0; y < 512; ++y)
    for (size_t x = 0; x < 512; ++x) depth->mutableRow(y)[x] = x >= 165 && x < 285 && y >= 52 && y < 172 ? 230 : 40;
  auto image = BVImage::initWithCIImage(portrait, CIImage::imageWithCGImage(depth), nullptr);
  CGImageRef original = CIContext::context()->createCGImage(portrait, portrait->extent());
  for (const char* focus : {"face", "eyes", "center"}) {
    SCOPED_TRACE(focus);
    const Value filter = {
        {"type", "color"},
        {"colorHex", "#ff0000"},
        {"mode", "Normal"},
        {"mask",
         {{"preferEmbedded", "disparity"}, {"disparityDepthPreset", "shallow"}, {"disparityAutofocus", focus}}}};
    auto out =
        BVImageProcessor::initWithFilters(BVFilter::filtersWithArray(Value::array({filter})), {})->process(image);
    ASSERT_TRUE(out && out->CGImage());
    const bool faceInFocus = std::string(focus) != "center";
    // (225, 110) lies on the face, (60, 450) on the background, rows counted from the top.
    EXPECT_EQ(test::rgbAt(*out->CGImage(), 225, 110) == test::rgbAt(*original, 225, 110), faceInFocus);
    EXPECT_EQ(test::rgbAt(*out->CGImage(), 60, 450) == test::rgbAt(*original, 60, 450), !faceInFocus);
  }
}

}  // namespace
}  // namespace brenvia
