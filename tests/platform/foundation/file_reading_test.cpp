#include "platform/foundation/file_reading.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace brenvia {
namespace {

TEST(FileReading, OnlyRegularFilesWithinTheLimitAreRead) {
  test::TempFolder folder;
  folder.write("small", {1, 2, 3});
  std::filesystem::create_directory(folder.path("sub"));
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  std::string error;
  EXPECT_EQ(BVReadRegularFile(folder.path("small"), 3, error), (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(BVReadRegularTextFile(folder.path("small"), 3, error), std::string("\1\2\3"));
  const std::pair<std::string, std::string> refused[] = {
      {folder.path("small"), "larger than"},  // a limit of 2 below
      {folder.path("sub"), "a folder"},         {folder.path("pipe"), "a pipe"}, {"/dev/zero", "a device"},
      {folder.path("missing"), "No such file"},
  };
  for (const auto& [path, reason] : refused) {
    EXPECT_FALSE(BVReadRegularFile(path, 2, error)) << path;
    EXPECT_NE(error.find(reason), std::string::npos) << path << ": " << error;
  }
  EXPECT_TRUE(BVIsRegularFile(folder.path("small"), error));
  EXPECT_FALSE(BVIsRegularFile(folder.path("pipe"), error));
}

}  // namespace
}  // namespace brenvia
