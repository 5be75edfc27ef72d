#include "cli_support.h"
#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

#include <sstream>

namespace brenvia {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(ThumbnailCommand, MakesThumbnailsOfTheLongerSideAndReportsEachFailure) {
  test::TempFolder folder;
  for (auto [name, w, h] : {std::tuple{"wide.jpg", 640, 480}, std::tuple{"tall.jpg", 300, 400}}) {
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(imageio::encodeJPEG(*test::noiseBitmap(w, h), {}, bytes));
    folder.write(name, bytes);
  }
  folder.write("text.jpg", {'n', 'o'});
  const std::string cache = folder.path("cache");
  const std::string inputs = folder.path("wide.jpg") + " " + folder.path("tall.jpg");
  auto made = test::runCli("thumbnail " + inputs + " " + folder.path("gone.jpg") + " " + folder.path("text.jpg") +
                           " --size 64 --cache " + cache);
  EXPECT_EQ(made.status, 1);
  const auto lines = linesOf(made.out);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "brenvia: " + folder.path("gone.jpg") + ": no such file"), 1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "brenvia: " + folder.path("text.jpg") + ": cannot read the picture"),
            1);
  std::vector<std::string> thumbnails;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(thumbnails),
               [&](auto& l) { return l.starts_with(cache); });
  ASSERT_EQ(thumbnails.size(), 2u);
  EXPECT_TRUE(thumbnails[0].ends_with("-64x48-1.00.jpg")) << thumbnails[0];
  EXPECT_TRUE(thumbnails[1].ends_with("-48x64-1.00.jpg")) << thumbnails[1];
  for (const auto& path : thumbnails) EXPECT_NE(CGImageCreateWithContentsOfFile(path), nullptr) << path;

  auto again = test::runCli("thumbnail " + inputs + " --size 64 --format png --cache " + cache);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(linesOf(again.out).size(), 2u);
  EXPECT_EQ(test::runCli("thumbnail " + inputs + " --size 0 --cache " + cache).status, 2);
}

// A photo taken on its side (EXIF orientation 6) gets an upright thumbnail.
TEST(ThumbnailCommand, ThumbnailsStandUpright) {
  test::TempFolder folder;
  imageio::EncodeOptions turned;
  turned.orientation = 6;
  std::vector<uint8_t> bytes;
  ASSERT_TRUE(imageio::encodeJPEG(*test::noiseBitmap(640, 480), turned, bytes));
  folder.write("side.jpg", bytes);
  auto made = test::runCli("thumbnail " + folder.path("side.jpg") + " --size 64 --cache " + folder.path("cache"));
  ASSERT_EQ(made.status, 0) << made.out;
  const std::string path = linesOf(made.out).back();
  EXPECT_TRUE(path.ends_with("-upright-48x64-1.00.jpg")) << path;
  EXPECT_EQ(CGImageCreateWithContentsOfFile(path)->width(), 48u);
}

}  // namespace
}  // namespace brenvia
