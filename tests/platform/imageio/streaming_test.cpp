// Decoding while the picture is in use, and JPEG files encoded strip by strip.

#include "platform/foundation/executor.h"
#include "platform/imageio/imageio_test_support.h"

#include <atomic>
#include <thread>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;

// Large enough to be decoded in the background.
std::vector<uint8_t> largeJPEG() { return encodeOrDie(*test::noiseBitmap(1280, 960), false, {.quality = 0.9}); }

TEST(ImageIOBackgroundDecode, GivesTheSamePixelsAsADecodeInPlace) {
  TempFolder folder;
  folder.write("large.jpg", largeJPEG());
  auto inPlace = decodeFile(folder.path("large.jpg"));
  auto background = decodeFile(folder.path("large.jpg"), {.background = true});
  ASSERT_TRUE(inPlace && background);
  // The last row first: the reader waits for the rows it touches.
  EXPECT_EQ(std::memcmp(background->image->row(959), inPlace->image->row(959), 1280 * 3), 0);
  EXPECT_TRUE(background->image->complete());
  EXPECT_EQ(maxDifference(*background->image, *inPlace->image), 0);
}

TEST(ImageIOBackgroundDecode, DamageFoundLateLeavesAnIncompleteClearedBitmapAndOneLogLine) {
  TempFolder folder;
  auto bytes = largeJPEG();
  bytes.resize(bytes.size() * 2 / 3);
  folder.write("cut.jpg", bytes);
  LogCapture log;
  auto cut = decodeFile(folder.path("cut.jpg"), {.background = true});
  ASSERT_TRUE(cut);  // the header is whole
  EXPECT_FALSE(cut->image->complete());
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].rfind("[ImageIO] Could not read `" + folder.path("cut.jpg") + "`: JPEG", 0), 0u);
  const uint8_t* last = cut->image->row(959);
  EXPECT_TRUE(std::all_of(last, last + 1280 * 3, [](uint8_t v) { return v == 0; }));
}

TEST(ImageIOBackgroundDecode, DroppingTheImageEarlyStopsTheDecoderQuietly) {
  TempFolder folder;
  folder.write("large.jpg", largeJPEG());
  LogCapture log;
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(decodeFile(folder.path("large.jpg"), {.background = true}));
  EXPECT_TRUE(log.lines.empty());
}

// Every worker of the pool is busy until the picture is read, as when the pool renders with it:
// the reader must then decode the rows itself.
TEST(ImageIOBackgroundDecode, FinishesWhenNoWorkerOfThePoolIsFree) {
  TempFolder folder;
  folder.write("large.jpg", largeJPEG());
  auto inPlace = decodeFile(folder.path("large.jpg"));
  std::atomic<bool> released{false};
  std::vector<BVAsyncTask> busy;
  for (unsigned i = 0; i < BVExecutorConcurrency(); ++i)
    busy.push_back(BVExecutorAsync([&] {
      while (!released) std::this_thread::yield();
    }));
  auto background = decodeFile(folder.path("large.jpg"), {.background = true});
  ASSERT_TRUE(inPlace && background);
  EXPECT_TRUE(background->image->complete());
  released = true;
  for (const auto& task : busy) task.wait();
  EXPECT_EQ(maxDifference(*background->image, *inPlace->image), 0);
}

size_t occurrences(const std::vector<uint8_t>& bytes, std::string_view needle) {
  size_t n = 0;
  for (auto it = bytes.begin(); (it = std::search(it, bytes.end(), needle.begin(), needle.end())) != bytes.end(); ++it)
    ++n;
  return n;
}

TEST(ImageIOStripEncoder, StripsInAnyOrderMakeTheFileOfAWholeEncode) {
  auto picture = gradient(F::RGBA8, 300, 203, CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3));
  for (double quality : {1.0, 0.8}) {
    SCOPED_TRACE(quality);
    JPEGStripEncoder encoder(300, 203, F::RGBA8, picture->colorSpace(), {.quality = quality, .orientation = 6}, 40);
    ASSERT_GT(encoder.stripCount(), 3u);
    EXPECT_EQ(encoder.stripRows() % (quality < 1 ? 16 : 8), 0u);
    for (size_t k = encoder.stripCount(); k-- > 0;)
      ASSERT_TRUE(encoder.encodeStrip(k, *picture, k * encoder.stripRows()));
    std::vector<uint8_t> strips;
    ASSERT_TRUE(encoder.finish(strips));
    // A sink sees the same file, strip by strip, as soon as each strip and those before it are done.
    JPEGStripEncoder streamed(300, 203, F::RGBA8, picture->colorSpace(), {.quality = quality, .orientation = 6}, 40);
    std::vector<uint8_t> received;
    std::vector<size_t> sizeAfterStrip;
    streamed.setSink([&](const uint8_t* data, size_t size) {
      received.insert(received.end(), data, data + size);
      return true;
    });
    for (size_t k : {1, 0, 3, 2}) {
      ASSERT_TRUE(streamed.encodeStrip(k, *picture, k * streamed.stripRows()));
      sizeAfterStrip.push_back(received.size());
    }
    EXPECT_EQ(sizeAfterStrip[0], 0u);  // strip 1 waits for strip 0
    EXPECT_GT(sizeAfterStrip[1], 0u);
    for (size_t k = 4; k < streamed.stripCount(); ++k)
      ASSERT_TRUE(streamed.encodeStrip(k, *picture, k * streamed.stripRows()));
    ASSERT_TRUE(streamed.finish());
    EXPECT_EQ(received, strips);
    // The strips are joined by restart markers; the profile and the orientation are written once.
    EXPECT_TRUE(contains(strips, "\xff\xd0"));
    EXPECT_EQ(occurrences(strips, "ICC_PROFILE"), 1u);
    EXPECT_EQ(occurrences(strips, "Exif"), 1u);
    auto decoded = decodeData(strips.data(), strips.size());
    auto whole = encodeOrDie(*picture, false, {.quality = quality, .orientation = 6});
    auto reference = decodeData(whole.data(), whole.size());
    ASSERT_TRUE(decoded && reference);
    EXPECT_EQ(maxDifference(*decoded->image, *reference->image), 0);
    EXPECT_EQ(decoded->properties["Orientation"], 6);
    EXPECT_EQ(decoded->image->colorSpace()->name(), kCGColorSpaceDisplayP3);
  }
}

TEST(ImageIOStripEncoder, AMissingOrMismatchedStripFailsWithOneLogLine) {
  auto picture = gradient(F::RGB8, 64, 64, CGColorSpaceCreateDeviceRGB());
  JPEGStripEncoder encoder(64, 64, F::RGB8, picture->colorSpace(), {}, 16);
  auto narrow = gradient(F::RGB8, 32, 64, CGColorSpaceCreateDeviceRGB());
  EXPECT_FALSE(encoder.encodeStrip(0, *narrow));
  EXPECT_FALSE(encoder.encodeStrip(encoder.stripCount(), *picture));
  for (size_t k = 1; k < encoder.stripCount(); ++k) EXPECT_TRUE(encoder.encodeStrip(k, *picture, k * 16));
  LogCapture log;
  std::vector<uint8_t> out{1, 2, 3};
  EXPECT_FALSE(encoder.finish(out));
  EXPECT_TRUE(out.empty());
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_NE(log.lines[0].find("do not match"), std::string::npos) << log.lines[0];
}

}  // namespace
}  // namespace brenvia::imageio::testing
