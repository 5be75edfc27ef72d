#include "cli_support.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <filesystem>
#include <fstream>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

// Runs that must end with a `brenvia:` line and a failing status, never a signal or a hang, and
// leave the output folder as it was.
class HostileInputs : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(file("folder"));
    fs::create_directory(file("out"));
    std::ofstream(file("out/keep.jpg")) << "precious";
    std::ofstream(file("good.json")) << R"([{"type": "adjustment", "exposure": 0.5}])";
    ASSERT_EQ(::mkfifo(file("pipe").c_str(), 0600), 0);
  }
  std::string file(const std::string& name) const { return folder_.path(name); }
  std::vector<std::string> outputs() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(file("out"))) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string photo = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg";
  test::TempFolder folder_;
};

TEST_F(HostileInputs, FilesThatAreNotFilesFailWithOneLine) {
  const std::string out = " -o " + file("out/keep.jpg") + " --max-size 64";
  const struct {
    std::string arguments;
    int status;
  } cases[] = {
      {"render " + file("good.json") + " " + file("folder") + out, 1},
      {"render " + file("folder") + " " + photo + out, 1},
      {"render " + file("pipe") + " " + photo + out, 1},
      {"render /dev/zero " + photo + out, 1},
      {"render " + file("good.json") + " /dev/zero" + out, 1},
      {"render " + file("good.json") + " " + photo + out + " --randomization " + file("folder"), 1},
      {"render " + file("good.json") + " " + photo + out + " --randomization /dev/zero", 1},
      {"info " + file("folder"), 1},
      {"curve " + file("folder"), 1},
      {"render " + file("good.json") + " " + photo + out + " --threads 0", 2},
      {"render " + file("good.json") + " " + photo + out + " --threads 1073741824", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    auto result = test::runCli(c.arguments);
    EXPECT_EQ(result.status, c.status) << result.out;
    EXPECT_TRUE(result.out.starts_with("brenvia: ") || result.out.find("\nbrenvia: ") != std::string::npos)
        << result.out;
    EXPECT_EQ(outputs(), std::vector<std::string>{"keep.jpg"});
  }
  std::ifstream kept(file("out/keep.jpg"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "precious");
}

// A bad entry of a batch is named and passed over; the other pictures are still rendered.
TEST_F(HostileInputs, ABatchGoesOnPastAFolder) {
  auto result = test::runCli("render " + file("good.json") + " " + photo + " " + file("folder") + " -o " + file("out") +
                             " --max-size 64");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("brenvia: " + file("folder") + ": cannot read the picture"), std::string::npos)
      << result.out;
  EXPECT_EQ(outputs(), (std::vector<std::string>{"keep.jpg", "ladybird.jpg"}));
}

// Files outside the asset folder are read only when the run says the recipe is trusted.
TEST_F(HostileInputs, FilesOutsideTheAssetFolderNeedPermission) {
  fs::create_directory(file("assets"));
  std::ofstream(file("assets/outside.json")) << R"([{"type": "curves", "lutFileName": "../lut.txt"}])";
  std::ofstream(file("lut.txt")) << "not a table";
  const std::string run =
      "render " + file("assets/outside.json") + " " + photo + " -o " + file("out/o.jpg") + " --max-size 64";
  auto refused = test::runCli(run);
  EXPECT_EQ(refused.status, 0);
  EXPECT_NE(refused.out.find("is not a file name inside the asset folder"), std::string::npos) << refused.out;
  auto allowed = test::runCli(run + " --allow-outside-assets");
  EXPECT_EQ(allowed.out.find("is not a file name inside the asset folder"), std::string::npos) << allowed.out;
}

// Tables and curve files that are folders or devices leave the picture as it is, with a log line.
TEST_F(HostileInputs, CurveFilesThatAreNotFilesLeaveThePicture) {
  for (const std::string entry : {R"("lutFileName": "")", R"("acvFileName": "folder")", R"("lutFileName": "pipe")"}) {
    SCOPED_TRACE(entry);
    std::ofstream(file("curves.json")) << R"([{"type": "curves", )" + entry + "}]";
    auto result =
        test::runCli("render " + file("curves.json") + " " + photo + " -o " + file("out/c.jpg") + " --max-size 64");
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find("[BVCurvesFilter]"), std::string::npos) << result.out;
  }
}

}  // namespace
}  // namespace brenvia
