#include "cli_support.h"
#include "test_support.h"

#include "image/brenvia_bundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

// The installed program renders, and the resource folder is found beside it.
TEST(Install, ProgramLibraryAndResourcesGoUnderThePrefix) {
  test::TempFolder prefix;
  const std::string build = fs::path(BRENVIA_CLI).parent_path().string();
  const std::string install = "cmake --install '" + build + "' --prefix '" + prefix.path("") + "' > /dev/null";
  ASSERT_EQ(std::system(install.c_str()), 0);
  EXPECT_TRUE(fs::exists(prefix.path("lib/libbrenvia.a")));
  EXPECT_TRUE(fs::exists(prefix.path("include/brenvia/image/image.h")));
  const std::string program = prefix.path("bin/brenvia");
  auto resources = BVBundle::installedFolderBeside(program);
  ASSERT_TRUE(resources);
  EXPECT_TRUE(fs::exists(*resources + "/SOURCES.md"));

  const std::string recipe = prefix.path("id.json"), out = prefix.path("out.png");
  std::system(("echo '[]' > '" + recipe + "'").c_str());
  const std::string photo = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg";
  const std::string render =
      "'" + program + "' render '" + recipe + "' '" + photo + "' -o '" + out + "' --max-size 16 --cg";
  EXPECT_EQ(std::system(render.c_str()), 0);
  EXPECT_TRUE(fs::exists(out));
}

}  // namespace
}  // namespace brenvia
