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

// The longer side as shown gets the size: a photo taken on its side (EXIF orientation 6) gets an
// upright thumbnail.
TEST(ThumbnailCommand, MakesUprightThumbnailsOfTheLongerSideAndReportsEachFailure) {
  test::TempFolder folder;
  for (auto [name, orientation] : {std::pair{"wide.jpg", 1}, std::pair{"side.jpg", 6}}) {
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(imageio::encodeJPEG(*test::noiseBitmap(640, 480), {.orientation = orientation}, bytes));
    folder.write(name, bytes);
  }
  folder.write("text.jpg", {'n', 'o'});
  const std::string cache = folder.path("cache");
  const std::string inputs = folder.path("wide.jpg") + " " + folder.path("side.jpg");
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
  EXPECT_TRUE(thumbnails[1].ends_with("-upright-48x64-1.00.jpg")) << thumbnails[1];
  EXPECT_EQ(CGImageCreateWithContentsOfFile(thumbnails[0])->width(), 64u);
  EXPECT_EQ(CGImageCreateWithContentsOfFile(thumbnails[1])->width(), 48u);

  auto again = test::runCli("thumbnail " + inputs + " --size 64 --format png --cache " + cache);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(linesOf(again.out).size(), 2u);
  EXPECT_EQ(test::runCli("thumbnail " + inputs + " --size 0 --cache " + cache).status, 2);
}

}  // namespace
}  // namespace brenvia
