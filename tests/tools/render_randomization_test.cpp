#include "cli_support.h"
#include "test_support.h"

#include "filter/randomization.h"
#include "platform/foundation/property_list.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

class RenderMovingValues : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.path(name); }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(file(name)) << text;
    return file(name);
  }
  std::string picture(const std::string& name) const {
    auto bitmap = test::makeBitmap(24, 16, [](size_t x, size_t y) {
      return std::array<uint8_t, 4>{uint8_t(60 + x * 6), uint8_t(180 - y * 8), uint8_t(100 + x + y), 255};
    });
    std::vector<uint8_t> bytes;
    imageio::encodePNG(*bitmap, {}, bytes);
    imageio::writeFileAtomically(file(name), bytes);
    return file(name);
  }
  static std::string bytesOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  test::TempFolder folder_;
};

TEST_F(RenderMovingValues, StoredDrawsRepeatPerPicture) {
  std::string recipe = write("random.json", R"([{"type": "adjustment",
      "random": [{"keyPath": "exposure", "minimum": -1, "maximum": 1},
                 {"keyPath": "saturation", "minimum": 0, "maximum": 1.5}]}])");
  std::string pictures = picture("a.png") + " " + picture("b.png");
  fs::create_directories(file("first"));
  fs::create_directories(file("second"));
  std::string draws = file("draws.plist");
  auto result = test::runCli("render " + recipe + " " + pictures + " -o " + file("first") + " --randomization " + draws);
  ASSERT_EQ(result.status, 0) << result.out;
  result = test::runCli("render " + recipe + " " + pictures + " -o " + file("second") + " --randomization " + draws);
  ASSERT_EQ(result.status, 0) << result.out;
  for (std::string name : {"a.png", "b.png"}) {
    EXPECT_EQ(bytesOf(file("first/" + name)), bytesOf(file("second/" + name))) << name;
  }

  // Each picture has its own keyed archive of draws in the file.
  std::string stored = bytesOf(draws);
  auto dictionary = BVPropertyListRead(reinterpret_cast<const uint8_t*>(stored.data()), stored.size());
  ASSERT_TRUE(dictionary && dictionary->is_object());
  EXPECT_EQ(dictionary->size(), 2u);
  auto archive = BVBase64Decode((*dictionary)["a.png"]["$data"].get<std::string>());
  BVRandomization::registerCodingClass();
  auto randomization = BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(archive->data(), archive->size());
  ASSERT_TRUE(randomization);
  EXPECT_TRUE(randomization->storedRandomizationValues().contains("20001-general"));
  EXPECT_TRUE(randomization->storedRandomizationValues().contains("15001-general"));
}

TEST_F(RenderMovingValues, MalformedDrawFilesAreRefused) {
  std::string recipe = write("id.json", "[]"), input = picture("in.png");
  auto bytes = BVPropertyListWrite(Value({{"in.png", "not data"}}));
  std::ofstream(file("wrong.plist"), std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
  for (std::string draws : {write("garbage.plist", "garbage"), file("wrong.plist")}) {
    auto result = test::runCli("render " + recipe + " " + input + " -o " + file("out.png") + " --randomization " + draws);
    EXPECT_EQ(result.status, 1) << draws;
    EXPECT_NE(result.out.find(draws), std::string::npos) << result.out;
    EXPECT_FALSE(fs::exists(file("out.png")));
  }
}

TEST_F(RenderMovingValues, SliderMovesTheRecipeAndBadValuesAreRefused) {
  std::string recipe = write("slider.json", R"([{"type": "adjustment", "exposure": 0,
      "sliderInput": {"keyPath": "exposure", "minimum": -1, "maximum": 1}}])");
  std::string input = picture("in.png");
  for (std::string slider : {"0", "1"}) {
    auto result = test::runCli("render " + recipe + " " + input + " -o " + file(slider + ".png") + " --slider " + slider +
                               " --alpha-slider texture=0.5");
    ASSERT_EQ(result.status, 0) << result.out;
  }
  EXPECT_NE(bytesOf(file("0.png")), bytesOf(file("1.png")));
  for (std::string option : {"--slider 1.5", "--alpha-slider texture", "--alpha-slider texture=2"}) {
    EXPECT_NE(test::runCli("render " + recipe + " " + input + " -o " + file("bad.png") + " " + option).status, 0) << option;
  }
}

}  // namespace
}  // namespace brenvia
