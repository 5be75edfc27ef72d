#include "cli_support.h"
#include "test_support.h"

#include <gtest/gtest.h>

namespace brenvia {
namespace {

TEST(CurveCommand, PrintsEachChannelsPointsAndRefusesOtherFiles) {
  test::TempFolder folder;
  // Master and blue straight, red lifted at the bottom through (100, 140), green straight.
  folder.write("lift.acv", {0, 4, 0, 4, 0, 2, 0, 0, 0, 0, 0, 255, 0, 255, 0, 3, 0, 10, 0, 0, 0, 140, 0, 100, 0, 255, 0, 255,
                            0, 2, 0, 0, 0, 0, 0, 255, 0, 255, 0, 2, 0, 0, 0, 0, 0, 255, 0, 255});
  auto shown = test::runCli("curve " + folder.path("lift.acv"));
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out,
            "RGB: {0, 0} {255, 255}\nred: {0, 10} {100, 140} {255, 255}\ngreen: {0, 0} {255, 255}\n"
            "blue: {0, 0} {255, 255}\n");
  folder.write("photo.jpg", {0xff, 0xd8, 0xff, 0xe0});
  auto refused = test::runCli("curve " + folder.path("photo.jpg"));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "brenvia: " + folder.path("photo.jpg") + ": not a readable ACV curve file\n");
}

}  // namespace
}  // namespace brenvia
