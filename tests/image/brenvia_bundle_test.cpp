#include "test_support.h"

#include "image/brenvia_bundle.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace brenvia {
namespace {

TEST(BrenviaBundle, ResourcesAreFoundInTheSourceTreeOrBesideAnInstalledProgram) {
  const BVBundle& bundle = BVBundle::brenviaBundle();
  EXPECT_EQ(&bundle, &BVBundle::brenviaBundle());
  EXPECT_TRUE(bundle.pathForResource("SOURCES", "md"));
  EXPECT_FALSE(bundle.pathForResource("SOURCES", "txt"));

  test::TempFolder prefix;
  std::filesystem::create_directories(prefix.path("bin"));
  EXPECT_FALSE(BVBundle::installedFolderBeside(prefix.path("bin/brenvia")));
  std::filesystem::create_directories(prefix.path("share/brenvia"));
  EXPECT_EQ(BVBundle::installedFolderBeside(prefix.path("bin/brenvia")), prefix.path("share/brenvia"));
  EXPECT_FALSE(BVBundle::installedFolderBeside(prefix.path("share/brenvia")));
}

}  // namespace
}  // namespace brenvia
