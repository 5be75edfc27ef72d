#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/imageio/image_io.h"
#include "thumbnails/thumbnailer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <thread>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

// Straight R, G, B, A of a thumbnail pixel, y from the top.
std::array<int, 4> colorAt(const std::shared_ptr<BVImage>& image, size_t x, size_t y) {
  const CGImageRef bitmap = image->CGImage();
  const uint8_t* p = bitmap->row(y) + x * 4;
  const bool bgra = bitmap->format() == CGPixelFormat::BGRA8Premultiplied;
  const int a = p[3];
  auto straight = [a](int c) { return a ? (c * 255 + a / 2) / a : 0; };
  return {straight(bgra ? p[2] : p[0]), straight(p[1]), straight(bgra ? p[0] : p[2]), a};
}

CGSize sizeOf(const std::shared_ptr<BVImage>& image) { return image ? image->size() : CGSizeZero; }

// Left half red, right half blue.
CGImageRef halves(size_t w, size_t h) {
  return test::makeBitmap(w, h, [w](size_t x, size_t) {
    return x < w / 2 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  });
}

std::string writeJPEG(const test::TempFolder& folder, const std::string& name, const CGImageRef& image) {
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(imageio::encodeJPEG(*image, {.quality = 0.9}, bytes));
  folder.write(name, bytes);
  return folder.path(name);
}

TEST(Thumbnailer, NamesThumbnailsByKeyRoundedSizeSteppedAlphaAndFormat) {
  const struct {
    CGSize size;
    double alpha;
    BVThumbnailerOptions options;
    std::string name;
  } cases[] = {
      {{100.4, 99.5}, 1.0, 0, "k-100x100-1.00.png"},
      {{10, 20}, 0.999, kBVThumbnailerOptionJPEG, "k-10x20-1.00.jpg"},
      {{10, 20}, 0.97, kBVThumbnailerOptionScaleToFill, "k-10x20-0.95.png"},
      {{10, 20}, 0.64, kBVThumbnailerOptionScaleToFit, "k-10x20-0.60.png"},
      {{10, 20}, 0.65, 0, "k-10x20-0.65.png"},
      {{0, 0}, 1.0, 0, "k-0x0-1.00.png"},
  };
  BVThumbnailer thumbnailer("/cache");
  for (const auto& c : cases) {
    EXPECT_EQ(thumbnailer.pathForKey("k", c.size, c.alpha, c.options), "/cache/" + c.name) << c.name;
  }
}

TEST(Thumbnailer, AnswersFromMemoryForTheSameKeySizeAndAlphaStep) {
  test::TempFolder folder;
  BVThumbnailer thumbnailer(folder.path("cache"));
  EXPECT_EQ(thumbnailer.generateThumbnailWithCGImage(nullptr, "k", {40, 30}, 1.0, 0), nullptr);
  auto made = thumbnailer.generateThumbnailWithCGImage(test::noiseBitmap(400, 300), "k", {40, 30}, 0.62, 0);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(sizeOf(made), CGSizeMake(40, 30));
  EXPECT_EQ(thumbnailer.imageForKey("k", {40, 30}, 0.60, 0), made);
  EXPECT_EQ(thumbnailer.imageForKey("k", {40, 30}, 0.60, kBVThumbnailerOptionJPEG), made);  // one memory entry
  EXPECT_EQ(thumbnailer.generateThumbnailWithCGImage(halves(8, 8), "k", {39.6, 30}, 0.64, 0), made);
  EXPECT_EQ(thumbnailer.imageForKey("k", {40, 30}, 0.65, 0), nullptr);
  EXPECT_EQ(thumbnailer.imageForKey("k", {41, 30}, 0.60, 0), nullptr);
  // A request at the picture's own size and full alpha is the picture itself, kept in memory only.
  auto picture = test::noiseBitmap(20, 10);
  EXPECT_EQ(thumbnailer.generateThumbnailWithCGImage(picture, "own", {20, 10}, 1.0, 0)->CGImage(), picture);
  EXPECT_FALSE(thumbnailer.thumbnailExistsForKey("own", {20, 10}, 1.0, 0));
  // The picture-object forms take points and keep the source's orientation.
  auto turned = UIImage::imageWithCGImage(test::noiseBitmap(80, 60), 2.0, BVImageOrientationRight);
  auto thumb = thumbnailer.generateThumbnailWithUIImage(*turned, "ui", {40, 30}, 1.0, 0);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(thumb->CGImage()->width(), 40u);
  EXPECT_EQ(thumb->imageOrientation(), BVImageOrientationRight);
  EXPECT_EQ(thumbnailer.UIImageForKey("ui", {40, 30}, 1.0, 0)->CGImage(), thumb->CGImage());
}

TEST(Thumbnailer, WritesToDiskUpToTheSizeLimitAndReadsBackInAFreshThumbnailer) {
  test::TempFolder folder;
  const std::string cache = folder.path("cache");
  const CGImageRef picture = test::noiseBitmap(300, 300);
  const CGSize sizes[] = {{128, 64}, {129, 64}, {64, 128}, {64, 129}, {128, 128}};
  {
    BVThumbnailer thumbnailer(cache);
    for (CGSize size : sizes) ASSERT_NE(thumbnailer.generateThumbnailWithCGImage(picture, "k", size, 1.0, 0), nullptr);
    thumbnailer.setMaximumSizeForDiskPersistence({200, 200});
    thumbnailer.generateThumbnailWithCGImage(picture, "k", {150, 150}, 1.0, kBVThumbnailerOptionJPEG);
  }
  BVThumbnailer fresh(cache);
  for (CGSize size : sizes) {
    const bool fits = size.width <= 128 && size.height <= 128;
    EXPECT_EQ(fresh.thumbnailExistsForKey("k", size, 1.0, 0), fits) << size.width << "x" << size.height;
    EXPECT_EQ(sizeOf(fresh.imageForKey("k", size, 1.0, 0)), fits ? size : CGSizeZero);
  }
  EXPECT_EQ(sizeOf(fresh.imageForKey("k", {150, 150}, 1.0, kBVThumbnailerOptionJPEG)), CGSizeMake(150, 150));
}

TEST(Thumbnailer, RemovesByExactKeyBySizeOrEverything) {
  test::TempFolder folder;
  BVThumbnailer thumbnailer(folder.path("cache"));
  const CGImageRef picture = test::noiseBitmap(100, 100);
  for (const char* key : {"a", "ab", "a.b", "aXb", "x-y"})
    thumbnailer.generateThumbnailWithCGImage(picture, key, {10, 10}, 1.0, 0);
  thumbnailer.generateThumbnailWithCGImage(picture, "x-y", {60, 10}, 1.0, 0);
  thumbnailer.generateThumbnailWithCGImage(picture, "x-y", {49, 49}, 1.0, 0);
  std::ofstream(folder.path("cache/notes.txt")) << "kept";
  auto bytes = [&](const std::string& key) { return thumbnailer.totalCachedByteSizeForKey(key); };
  EXPECT_EQ(bytes("a"), bytes("ab") + bytes("a.b") + bytes("aXb") +
                            int64_t(fs::file_size(thumbnailer.pathForKey("a", {10, 10}, 1, 0))));

  thumbnailer.removeThumbnailsWithKey("a.b");
  EXPECT_FALSE(thumbnailer.thumbnailExistsForKey("a.b", {10, 10}, 1.0, 0));
  EXPECT_EQ(thumbnailer.imageForKey("a.b", {10, 10}, 1.0, 0), nullptr);
  EXPECT_TRUE(thumbnailer.thumbnailExistsForKey("aXb", {10, 10}, 1.0, 0));

  thumbnailer.removeThumbnailsLargerThan({50, 50});
  EXPECT_FALSE(thumbnailer.thumbnailExistsForKey("x-y", {60, 10}, 1.0, 0));
  EXPECT_TRUE(thumbnailer.thumbnailExistsForKey("x-y", {49, 49}, 1.0, 0));
  EXPECT_NE(thumbnailer.imageForKey("x-y", {60, 10}, 1.0, 0), nullptr);  // memory is left alone

  thumbnailer.removeThumbnailsWithKey("notes");
  EXPECT_TRUE(fs::exists(folder.path("cache/notes.txt")));
  thumbnailer.removeAllThumbnails();
  EXPECT_TRUE(fs::is_empty(folder.path("cache")));
  EXPECT_EQ(thumbnailer.imageForKey("x-y", {60, 10}, 1.0, 0), nullptr);
}

// Concurrent requests for one thumbnail make it once; a request with a callback answers from
// another thread, and only with a picture.
TEST(Thumbnailer, FileRequestsRunOnceAndCallBackFromAnotherThread) {
  test::TempFolder folder;
  const std::string photo = writeJPEG(folder, "photo.jpg", test::noiseBitmap(1600, 1200));
  BVThumbnailer thumbnailer(folder.path("cache"));
  std::vector<std::future<std::shared_ptr<BVImage>>> requests;
  for (int i = 0; i < 8; ++i) {
    requests.push_back(std::async(std::launch::async, [&] {
      return thumbnailer.generateThumbnailWithImagePath(photo, "k", {400, 300}, 1.0, 0);
    }));
  }
  // A second generation would have replaced the memory entry with an object of its own.
  const auto first = requests[0].get();
  ASSERT_NE(first, nullptr);
  for (size_t i = 1; i < requests.size(); ++i) EXPECT_EQ(requests[i].get(), first);
  EXPECT_EQ(thumbnailer.imageForKey("k", {400, 300}, 1.0, 0), first);

  std::promise<std::pair<CGSize, std::thread::id>> called;
  thumbnailer.generateThumbnailWithImagePath(photo, "k", {32, 24}, 1.0, 0, [&](std::shared_ptr<BVImage> image) {
    called.set_value({sizeOf(image), std::this_thread::get_id()});
  });
  const auto [size, thread] = called.get_future().get();
  EXPECT_EQ(size, CGSizeMake(32, 24));
  EXPECT_NE(thread, std::this_thread::get_id());
  test::LogCapture log;
  bool missingCalled = false;
  thumbnailer.generateThumbnailWithImagePath(folder.path("gone.jpg"), "g", {32, 24}, 1.0, 0,
                                             [&](std::shared_ptr<BVImage>) { missingCalled = true; });
  EXPECT_EQ(log.lines.size(), 1u);
  EXPECT_FALSE(missingCalled);
}

TEST(Thumbnailer, TreatsADamagedFileAsMissingAndMakesItAgain) {
  test::TempFolder folder;
  const std::string cache = folder.path("cache");
  const CGImageRef picture = test::noiseBitmap(200, 100);
  const std::string path = BVThumbnailer(cache).pathForKey("k", {20, 10}, 1.0, 0);
  BVThumbnailer(cache).generateThumbnailWithCGImage(picture, "k", {20, 10}, 1.0, 0);
  std::vector<uint8_t> png;
  ASSERT_TRUE(imageio::encodePNG(*test::noiseBitmap(20, 10), {}, png));
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(png.data()), 60);  // cut short
  test::LogCapture log;
  BVThumbnailer fresh(cache);
  EXPECT_EQ(fresh.imageForKey("k", {20, 10}, 1.0, 0), nullptr);
  EXPECT_EQ(sizeOf(fresh.generateThumbnailWithCGImage(picture, "k", {20, 10}, 1.0, 0)), CGSizeMake(20, 10));
  EXPECT_TRUE(log.lines.back().starts_with("[BVThumbnailer] Found non-image")) << log.lines.back();
  EXPECT_NE(CGImageCreateWithContentsOfFile(path), nullptr);
}

TEST(Thumbnailer, PlacesThePictureByScalingOptionAndShape) {
  test::TempFolder folder;
  BVThumbnailer thumbnailer(folder.path("cache"));
  const CGImageRef wide = halves(300, 200);
  // The request's shape turned on its side: the picture is turned, its halves now top and bottom.
  auto turned = thumbnailer.generateThumbnailWithCGImage(wide, "turn", {200, 300}, 1.0, 0);
  EXPECT_NE(colorAt(turned, 100, 20), colorAt(turned, 100, 280));
  EXPECT_EQ(colorAt(turned, 20, 20), colorAt(turned, 180, 20));
  // Fit leaves bands clear above and below; fill (also with fit set) covers the canvas.
  auto fit = thumbnailer.generateThumbnailWithCGImage(wide, "fit", {100, 100}, 1.0, kBVThumbnailerOptionScaleToFit);
  EXPECT_EQ(colorAt(fit, 50, 5)[3], 0);
  EXPECT_EQ(colorAt(fit, 10, 50), (std::array<int, 4>{255, 0, 0, 255}));
  auto fill = thumbnailer.generateThumbnailWithCGImage(
      wide, "fill", {100, 100}, 1.0, kBVThumbnailerOptionScaleToFit | kBVThumbnailerOptionScaleToFill);
  EXPECT_EQ(colorAt(fill, 50, 2)[3], 255);
  EXPECT_EQ(colorAt(fill, 2, 50), (std::array<int, 4>{255, 0, 0, 255}));
  // A picture of the default aspect ratio is stretched to the canvas, at the request's alpha.
  auto stretched = thumbnailer.generateThumbnailWithCGImage(halves(300, 300), "sq", {100, 50}, 0.5, 0);
  EXPECT_EQ(colorAt(stretched, 95, 25)[3], 128);
  EXPECT_EQ(colorAt(stretched, 5, 45)[0], 255);
}

TEST(Thumbnailer, AveragesFineDetailAwayAndDecodesFilesReduced) {
  test::TempFolder folder;
  BVThumbnailer thumbnailer(folder.path("cache"));
  const CGImageRef checkers = test::makeBitmap(512, 384, [](size_t x, size_t y) {
    uint8_t v = (x + y) % 2 ? 255 : 0;
    return std::array<uint8_t, 4>{v, v, v, 255};
  });
  auto grey = thumbnailer.generateThumbnailWithCGImage(checkers, "checkers", {61, 47}, 1.0, 0);
  for (size_t y = 0; y < 47; y += 5) {
    for (size_t x = 0; x < 61; x += 5) EXPECT_NEAR(colorAt(grey, x, y)[1], 128, 3) << x << "," << y;
  }
  const std::string photo = writeJPEG(folder, "halves.jpg", halves(1600, 1200));
  auto fromFile = thumbnailer.generateThumbnailWithImagePath(photo, "file", {100, 75}, 1.0, 0);
  ASSERT_EQ(sizeOf(fromFile), CGSizeMake(100, 75));
  EXPECT_NEAR(colorAt(fromFile, 10, 40)[0], 255, 4);
  EXPECT_NEAR(colorAt(fromFile, 90, 40)[2], 255, 4);
  EXPECT_EQ(thumbnailer.generateThumbnailWithImagePath(folder.path("none.jpg"), "none", {10, 10}, 1.0, 0), nullptr);
}

}  // namespace
}  // namespace brenvia
