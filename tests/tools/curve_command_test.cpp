#include "cli_support.h"
#include "test_support.h"

#include "image/image.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

TEST(CurveCommand, PrintsEachChannelsPointsAndRefusesOtherFiles) {
  test::TempFolder folder;
  // Master and blue straight, red lifted at the bottom through (100, 140), green straight.
  folder.write("lift.acv", {0, 4,   0, 4,   0, 2, 0, 0, 0, 0, 0, 255, 0, 255, 0, 3, 0, 10, 0, 0, 0, 140, 0, 100,
                            0, 255, 0, 255, 0, 2, 0, 0, 0, 0, 0, 255, 0, 255, 0, 2, 0, 0,  0, 0, 0, 255, 0, 255});
  auto shown = test::runCli("curve " + folder.path("lift.acv"));
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out,
            "RGB: {0, 0} {255, 255}\nred: {0, 10} {100, 140} {255, 255}\ngreen: {0, 0} {255, 255}\n"
            "blue: {0, 0} {255, 255}\n");
  // The plot: a white ground, the master curve (black) along the diagonal, the lifted red above it.
  ASSERT_EQ(test::runCli("curve " + folder.path("lift.acv") + " -o " + folder.path("plot.png")).status, 0);
  auto plot = BVImage::initWithContentsOfFile(folder.path("plot.png"))->CGImage();
  ASSERT_EQ(plot->width(), 510u);
  auto rgbAt = [&](size_t x, size_t y) {  // y counted from the bottom, as the curves run
    return test::rgbAt(*plot, x, 509 - y);
  };
  EXPECT_EQ(rgbAt(400, 60), (std::array<int, 3>{255, 255, 255}));
  EXPECT_LT(rgbAt(300, 300)[1], 100);  // on the diagonal
  const auto red = rgbAt(200, 280);    // red passes (100, 140), drawn at twice the scale
  EXPECT_GT(red[0], red[1] + 60);
  EXPECT_EQ(test::runCli("curve " + folder.path("lift.acv") + " -o " + folder.path("no/such/dir.png")).status, 1);
  folder.write("photo.jpg", {0xff, 0xd8, 0xff, 0xe0});
  auto refused = test::runCli("curve " + folder.path("photo.jpg"));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "brenvia: " + folder.path("photo.jpg") + ": not a readable ACV curve file\n");
}

}  // namespace
}  // namespace brenvia
