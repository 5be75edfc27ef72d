#include "filter/filter.h"

#include "image/graphics_utilities.h"
#include "image/image.h"
#include "platform/coreimage/ci_image.h"
#include "platform/imageio/image_io.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace brenvia {
namespace {

class FilterPictures : public ::testing::Test {
 protected:
  // An empty file is enough for the lookups, which never open the files.
  void touch(const std::string& name) { std::ofstream(folder.path(name)) << ""; }
  void picture(const std::string& name, size_t w, size_t h) {
    std::vector<uint8_t> png;
    imageio::encodePNG(*test::solidBitmap(w, h, {200, 100, 50, 255}), {}, png);
    imageio::writeFileAtomically(folder.path(name), png);
  }
  std::shared_ptr<BVFilter> filter(std::optional<std::string> prefix = std::nullopt) {
    auto made = std::make_shared<BVFilter>();
    made->initWithParameters(Value::object(), folder.path(""), prefix);
    return made;
  }
  std::optional<std::string> found(const BVFilter& f, const std::string& name, CGSize size, int mode = 0) {
    auto path = f.pathForImageNamed(name, size, mode);
    return path ? std::optional(std::filesystem::path(*path).filename().string()) : std::nullopt;
  }
  test::TempFolder folder;
};

TEST_F(FilterPictures, NamesThatLeadOutOfTheAssetFolderArePassedOver) {
  touch("inner.png");
  std::filesystem::create_directory(folder.path("assets"));
  auto inside = std::make_shared<BVFilter>();
  inside->initWithParameters(Value::object(), folder.path("assets"));
  test::LogCapture log;
  for (const std::string& name : std::vector<std::string>{"../inner", folder.path("inner"), "a/../../inner", ""}) {
    EXPECT_EQ(inside->pathForImageNamed(name, {10, 10}, 0), std::nullopt) << name;
  }
  // A link inside the folder that leads out of it is passed over too.
  std::filesystem::create_symlink(folder.path("inner.png"), folder.path("assets/link.png"));
  EXPECT_EQ(inside->pathForImageNamed("link", {10, 10}, 0), std::nullopt);
  EXPECT_EQ(log.lines.size(), 5u);
  BVFilter::setAllowsFilesOutsideAssets(true);
  EXPECT_TRUE(inside->pathForImageNamed("../inner", {10, 10}, 0));
  EXPECT_TRUE(inside->pathForImageNamed("link", {10, 10}, 0));
  BVFilter::setAllowsFilesOutsideAssets(false);
  touch("assets/deep.png");
  EXPECT_TRUE(inside->pathForImageNamed("deep", {10, 10}, 0));
}

TEST_F(FilterPictures, FileNamesAreTriedInOrder) {
  touch("grain_640.jpg");
  EXPECT_EQ(found(*filter(), "grain", {640, 480}), "grain_640.jpg");
  EXPECT_EQ(found(*filter(), "grain", {641, 480}), std::nullopt);
  touch("grain_1936.jpg");
  EXPECT_EQ(found(*filter(), "grain", {641, 480}), "grain_1936.jpg");
  touch("grain.jpeg");
  EXPECT_EQ(found(*filter(), "grain", {640, 480}), "grain.jpeg");
  touch("grain.png");
  EXPECT_EQ(found(*filter(), "grain", {640, 480}), "grain.png");
  EXPECT_EQ(found(*filter("film"), "grain", {640, 480}), std::nullopt);
  touch("film_grain.jpg");
  EXPECT_EQ(found(*filter("film"), "grain", {640, 480}), "film_grain.jpg");
}

TEST_F(FilterPictures, CustomModePicksTheNearestRatioWhenNearerThanSquare) {
  for (const char* name :
       {"frame.jpg", "frame-1.5.jpg", "frame-0.75.png", "frame-1.45-x.jpg", "frames-1.4.jpg", "other-1.4.jpg"})
    touch(name);
  auto f = filter();
  EXPECT_EQ(found(*f, "frame", {140, 100}, BVImageScalingModeCustom), "frame-1.5.jpg");
  EXPECT_EQ(found(*f, "frame", {75, 100}, BVImageScalingModeCustom), "frame-0.75.png");
  EXPECT_EQ(found(*f, "frame", {100, 100}, BVImageScalingModeCustom), "frame.jpg");  // the default ratio
  EXPECT_EQ(found(*f, "frame", {140, 100}, BVImageScalingModeFill), "frame.jpg");
  touch("wide-1.0.jpg");
  touch("wide-3.5.jpg");
  EXPECT_EQ(f->pathForCustomAspectRatioImageNamed("wide", 2.0), std::nullopt);  // neither beats a square
}

TEST_F(FilterPictures, PlacementScalesAndMovesToTheNamedEdges) {
  auto image = CIImage::imageWithColor(CIColor(1, 0, 0))->imageByCroppingToRect(CGRectMake(0, 0, 40, 20));
  EXPECT_EQ(BVFilter::placedImage(image, {40, 20}, BVImageScalingModeFit, kBVImagePositionTop, {40, 20}), image);
  struct Case {
    int mode;
    BVImagePosition position;
    CGRect extent;
  };
  const Case cases[] = {
      {BVImageScalingModeStretch, kBVImagePositionNone, CGRectMake(0, 0, 100, 100)},
      {BVImageScalingModeFit, kBVImagePositionNone, CGRectMake(0, 25, 100, 50)},
      {BVImageScalingModeFit, kBVImagePositionTop, CGRectMake(0, 50, 100, 50)},
      {BVImageScalingModeFit, kBVImagePositionTop | kBVImagePositionBottom, CGRectMake(0, 0, 100, 50)},
      {BVImageScalingModeFill, kBVImagePositionRight, CGRectMake(-100, 0, 200, 100)},
      {BVImageScalingModeFill, kBVImagePositionLeft | kBVImagePositionRight, CGRectMake(-100, 0, 200, 100)},
      {BVImageScalingModeFill, kBVImagePositionLeft, CGRectMake(0, 0, 200, 100)},
  };
  for (const Case& c : cases) {
    CGRect extent = BVFilter::placedImage(image, {40, 20}, c.mode, c.position, {100, 100})->extent();
    EXPECT_TRUE(CGRectEqualToRect(extent, c.extent))
        << c.mode << " " << c.position << ": " << NSStringFromCGRect(extent);
  }
  EXPECT_THROW(BVFilter::placedImage(image, {40, 20}, 7, 0, {100, 100}), std::logic_error);
}

TEST_F(FilterPictures, PicturesComeThroughTheThumbnailerOrTheFile) {
  picture("paper.png", 64, 32);
  auto f = filter();
  auto small = f->imageNamed("paper", {32, 16});
  ASSERT_TRUE(small);
  EXPECT_EQ(small->CGImage()->width(), 32u);
  f->clearProcessingCacheForImageNamed("paper");
  // Large and positioned: the file itself, placed.
  CIImageRef placed = f->CIImageNamed("paper", {640, 640}, BVImageScalingModeFit, kBVImagePositionBottom);
  ASSERT_TRUE(placed);
  EXPECT_TRUE(CGRectEqualToRect(placed->extent(), CGRectMake(0, 0, 640, 320)));
  CIImageRef cached = f->CIImageNamed("paper", {64, 64}, BVImageScalingModeStretch, kBVImagePositionNone);
  ASSERT_TRUE(cached);
  EXPECT_TRUE(CGRectEqualToRect(cached->extent(), CGRectMake(0, 0, 64, 64)));
  test::LogCapture log;
  EXPECT_FALSE(f->imageNamed("absent", {8, 8}));
  EXPECT_FALSE(f->CIImageNamed("absent", {8, 8}, 0, 0));
  EXPECT_EQ(log.lines.size(), 2u);
}

// Thumbnails kept on disk are told apart by the file they were made from and by the scaling.
TEST_F(FilterPictures, CachedThumbnailsFollowTheFileAndTheScaling) {
  auto framed = [&](const std::string& folderName, std::array<uint8_t, 4> colour, size_t width = 40) {
    std::filesystem::create_directories(folder.path(folderName));
    std::vector<uint8_t> png;
    imageio::encodePNG(*test::solidBitmap(width, 20, colour), {}, png);
    imageio::writeFileAtomically(folder.path(folderName + "/frame.png"), png);
    auto made = std::make_shared<BVFilter>();
    made->initWithParameters(Value::object(), folder.path(folderName));
    return made;
  };
  auto colourOf = [](const BVFilter& f, int mode) {
    auto image = f.imageNamed("frame", {32, 32}, mode);
    return image ? test::rgbAt(*image->CGImage(), 16, 16)[0] : -1;
  };
  auto first = framed("one/frames", {200, 0, 0, 255});
  auto second = framed("two/frames", {100, 0, 0, 255});
  EXPECT_EQ(colourOf(*first, BVImageScalingModeFill), 200);
  EXPECT_EQ(colourOf(*second, BVImageScalingModeFill), 100);
  // A wide picture fitted leaves the middle row covered but the top row empty; filled it covers all.
  EXPECT_EQ(test::pixelAt(first->imageNamed("frame", {32, 32}, BVImageScalingModeFit)->CGImage(), 16, 0)[3], 0);
  EXPECT_EQ(test::pixelAt(first->imageNamed("frame", {32, 32}, BVImageScalingModeFill)->CGImage(), 16, 0)[3], 255);
  // An edited file (another size, another time) is seen at once.
  auto edited = framed("one/frames", {50, 0, 0, 255}, 41);
  EXPECT_EQ(colourOf(*edited, BVImageScalingModeFill), 50);
}

}  // namespace
}  // namespace brenvia
