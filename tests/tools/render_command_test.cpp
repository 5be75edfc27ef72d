#include "cli_support.h"
#include "test_support.h"

#include "image/image.h"
#include "platform/foundation/property_list.h"
#include "platform/imageio/heif_test_support.h"
#include "platform/imageio/imageio_test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

std::string bytesOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class RenderCommand : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.path(name); }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(file(name)) << text;
    return file(name);
  }
  // A small PNG with colour everywhere, so that every recipe has something to change.
  std::string picture(const std::string& name) const {
    auto bitmap = test::makeBitmap(48, 32, [](size_t x, size_t y) {
      return std::array<uint8_t, 4>{uint8_t(40 + x * 4), uint8_t(200 - y * 5), uint8_t(90 + x + y), 255};
    });
    std::vector<uint8_t> bytes;
    imageio::encodePNG(*bitmap, {}, bytes);
    imageio::writeFileAtomically(file(name), bytes);
    return file(name);
  }
  // The picture of a file as 8-bit RGBA, whatever layout the file holds.
  static CGImageRef load(const std::string& path) {
    auto image = BVImage::initWithContentsOfFile(path, Value{{"storageAPI", "coreImage"}});
    CIImageRef engine = image ? image->CIImage() : nullptr;
    return engine ? CIContext::context()->createCGImage(engine, engine->extent()) : nullptr;
  }
  static double meanDifference(const CGImageRef& a, const CGImageRef& b) {
    double sum = 0;
    for (size_t y = 0; y < a->height(); ++y)
      for (size_t x = 0; x < a->width(); ++x)
        for (int c = 0; c < 3; ++c) sum += std::abs(test::pixelAt(a, x, y)[c] - test::pixelAt(b, x, y)[c]);
    return sum / double(a->width() * a->height() * 3);
  }

  test::TempFolder folder_;
};

TEST_F(RenderCommand, EveryExampleRecipeChangesThePhoto) {
  std::string photo = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg";
  std::string plain = file("plain.png");
  ASSERT_EQ(test::runCli("render " + write("id.json", "[]") + " " + photo + " -o " + plain + " --max-size 200").status,
            0);
  for (const auto& entry : fs::directory_iterator(std::string(BRENVIA_EXAMPLES) + "/recipes")) {
    std::string out = file(entry.path().stem().string() + ".png");
    auto result = test::runCli("render " + entry.path().string() + " " + photo + " -o " + out + " --max-size 200");
    ASSERT_EQ(result.status, 0) << entry.path() << result.out;
    EXPECT_GT(meanDifference(load(plain), load(out)), 2.0) << entry.path();
  }
}

// A recipe's table file is found beside the recipe unless --assets names another folder.
TEST_F(RenderCommand, CurveFilesAreFoundBesideTheRecipe) {
  std::string input = picture("in.png"), out = file("out.png");
  write("invert.cube", "LUT_3D_SIZE 2\n1 1 1\n0 1 1\n1 0 1\n0 0 1\n1 1 0\n0 1 0\n1 0 0\n0 0 0\n");
  std::string recipe = write("invert.json", R"([{"type": "curves", "lutFileName": "invert.cube"}])");
  auto result = test::runCli("render " + recipe + " " + input + " -o " + out);
  ASSERT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(test::pixelAt(load(out), 3, 2)[0], 255 - test::pixelAt(load(input), 3, 2)[0]);
  result = test::runCli("render " + recipe + " " + input + " -o " + out + " --assets " + file("nowhere"));
  EXPECT_NE(result.out.find("[BVCubeLUT] Could not read"), std::string::npos) << result.out;
  EXPECT_EQ(meanDifference(load(input), load(out)), 0.0);
}

// The shipped film look finds its grain and frame beside its recipe; a recipe naming a picture
// that is nowhere or a filter type that does not exist logs it and renders the rest.
TEST_F(RenderCommand, FilterPicturesAreFoundOrReportedMissing) {
  const std::string photo = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg", out = file("film.jpg");
  auto result = test::runCli("render " + std::string(BRENVIA_EXAMPLES) + "/film/film.json " + photo + " -o " + out +
                             " --max-size 200");
  ASSERT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.out.find("Unable"), std::string::npos) << result.out;
  EXPECT_LT(test::pixelAt(load(out), 0, 0)[0], 90);  // the frame darkens the corner
  std::string recipe = write("lost.json", R"([{"type": "sparkle"}, {"type": "image", "imageName": "lost"},
      {"type": "adjustment", "exposure": 1}])");
  result = test::runCli("render " + recipe + " " + picture("in.png") + " -o " + file("out.png"));
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("[BVFilter] Unable to find image named `lost`"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("[BVFilter] Unable to initialize filter subclass for `sparkle`"), std::string::npos);
  EXPECT_TRUE(fs::exists(file("out.png")));
}

// Adjustments cannot draw on a bitmap context: on the drawing road they log and leave the
// picture as the engine road gives it for no filters.
TEST_F(RenderCommand, DrawingRoadGivesThePictureOfTheEngineRoad) {
  std::string photo = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg";
  std::string empty = write("id.json", "[]"), punchy = std::string(BRENVIA_EXAMPLES) + "/recipes/punchy.json";
  std::string plain = file("plain.png"), drawn = file("drawn.png");
  ASSERT_EQ(test::runCli("render " + empty + " " + photo + " -o " + plain + " --max-size 120").status, 0);
  for (const std::string& recipe : {empty, punchy}) {
    auto result = test::runCli("render " + recipe + " " + photo + " -o " + drawn + " --max-size 120 --cg");
    ASSERT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(result.out.find("[BVAdjustmentFilter] Color adjustment is not supported") != std::string::npos,
              recipe == punchy);
    ASSERT_EQ(load(drawn)->width(), 120u);
    EXPECT_LE(meanDifference(load(plain), load(drawn)), 0.5) << recipe;
  }
}

TEST_F(RenderCommand, BatchesGoToAFolderAndRecipesMayBePropertyLists) {
  Value recipe = Value::array({{{"type", "adjustment"}, {"exposure", 0.5}}});
  auto bytes = BVPropertyListWrite(recipe, BVPropertyListFormat::Binary);
  std::ofstream(file("recipe.bplist"), std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
  fs::create_directories(file("out"));
  auto result = test::runCli("render " + file("recipe.bplist") + " " + picture("a.png") + " " + picture("b.png") +
                             " -o " + file("out") + " --threads 2");
  ASSERT_EQ(result.status, 0) << result.out;
  EXPECT_TRUE(fs::exists(file("out/a.png")));
  EXPECT_GT(meanDifference(load(file("a.png")), load(file("out/b.png"))), 5.0);
}

// Each refused run leaves the output as it was; the run-time failures name the file in a `brenvia:` line.
TEST_F(RenderCommand, BadRecipesInputsAndOptionsFailCleanly) {
  const std::string input = picture("in.png"), out = file("keep.jpg"), id = write("id.json", "[]");
  write("keep.jpg", "precious");
  auto bytes = BVPropertyListWrite(Value({{"in.png", "not data"}}));
  std::ofstream(file("wrong.plist"), std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
  const struct {
    std::string arguments;
    int status;
    std::string line;
  } cases[] = {
      {write("bad.json", "[{\"type\": ") + " " + input + " -o " + out, 1,
       "brenvia: " + file("bad.json") + ": not valid JSON\n"},
      // The library's reason is folded into the one line that names the input.
      {id + " " + file("nope.jpg") + " -o " + out, 1,
       "brenvia: " + file("nope.jpg") + ": cannot read the picture: No such file"},
      {id + " " + input + " -o " + out + " --randomization " + write("garbage.plist", "garbage"), 1,
       file("garbage.plist")},
      {id + " " + input + " -o " + out + " --randomization " + file("wrong.plist"), 1, file("wrong.plist")},
      {id + " " + input + " -o " + file("x.gif"), 2, ""},
      {id + " " + input, 2, ""},
      {id + " " + input + " -o " + out + " --quality 101", 2, ""},
      {id + " " + input + " -o " + out + " --slider 1.5", 2, ""},
      {id + " " + input + " -o " + out + " --alpha-slider texture", 2, ""},
      {id + " " + input + " -o " + out + " --alpha-slider texture=2", 2, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    auto result = test::runCli("render " + c.arguments);
    EXPECT_EQ(result.status, c.status) << result.out;
    EXPECT_NE(result.out.find(c.line), std::string::npos) << result.out;
    EXPECT_EQ(bytesOf(out), "precious");
  }
  // A large picture whose damage shows only after rendering has begun.
  std::vector<uint8_t> large;
  imageio::encodeJPEG(*test::noiseBitmap(1200, 900), {}, large);
  large.resize(large.size() / 2);
  imageio::writeFileAtomically(file("cut.jpg"), large);
  auto cut = test::runCli("render " + id + " " + file("cut.jpg") + " -o " + out);
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.out.find("[ImageIO] Could not read `" + file("cut.jpg") + "`"), std::string::npos) << cut.out;
  EXPECT_NE(cut.out.find("brenvia: " + file("cut.jpg") + ": cannot read the picture"), std::string::npos) << cut.out;
  EXPECT_EQ(bytesOf(out), "precious");
}

// Whatever extent the filters give (blurs spread, overlays fill), the output has the picture's
// size, and neighbourhood filters read the edge pixels beyond the border: no light or dark frame.
TEST_F(RenderCommand, OutputsKeepThePictureSizeAndNoFrame) {
  const std::string input = picture("in.png");
  const std::string recipes[] = {
      R"([{"type": "unsharp", "radius": 20, "intensity": 1}])",
      R"([{"type": "color", "colorHex": "#808080", "alternateCIFilters": [{"name": "CIGaussianBlur", "attributes": {"inputRadius": 3}}]}])",
  };
  auto plain = (test::runCli("render " + write("id.json", "[]") + " " + input + " -o " + file("plain.png")),
                load(file("plain.png")));
  for (const std::string& recipe : recipes) {
    SCOPED_TRACE(recipe);
    auto result = test::runCli("render " + write("r.json", recipe) + " " + input + " -o " + file("out.png"));
    ASSERT_EQ(result.status, 0) << result.out;
    auto out = load(file("out.png"));
    ASSERT_EQ(out->width(), 48u);
    ASSERT_EQ(out->height(), 32u);
    // The source is a smooth ramp, so sharpening leaves its border rows and columns near the original.
    for (size_t x = 0; x < 48; ++x)
      for (size_t y : {size_t(0), size_t(31)})
        EXPECT_NEAR(test::pixelAt(out, x, y)[1], test::pixelAt(plain, x, y)[1], 12) << x << "," << y;
  }
}

// Same-named inputs of two folders would overwrite each other's output: the batch is refused.
// With --strict, a picture whose recipe names a missing file fails instead of shipping without it.
TEST_F(RenderCommand, ClashingBatchesAndStrictRuns) {
  fs::create_directories(file("one"));
  fs::create_directories(file("two"));
  fs::create_directories(file("out"));
  fs::copy_file(picture("p.png"), file("one/p.png"));
  fs::copy_file(picture("p.png"), file("two/p.png"));
  auto clash = test::runCli("render " + write("id.json", "[]") + " " + file("one/p.png") + " " + file("two/p.png") +
                            " -o " + file("out"));
  EXPECT_EQ(clash.status, 2);
  EXPECT_NE(clash.out.find("would both be written to"), std::string::npos) << clash.out;
  EXPECT_TRUE(fs::is_empty(file("out")));

  const std::string lost = write("lost.json", R"([{"type": "image", "imageName": "lost"}])");
  EXPECT_EQ(test::runCli("render " + lost + " " + file("one/p.png") + " -o " + file("out/a.png")).status, 0);
  auto strict = test::runCli("render " + lost + " " + file("one/p.png") + " -o " + file("out/b.png") + " --strict");
  EXPECT_EQ(strict.status, 1);
  EXPECT_NE(strict.out.find("brenvia: " + file("one/p.png") + ": the recipe or its files had problems"),
            std::string::npos)
      << strict.out;
  EXPECT_EQ(
      test::runCli("render " + file("id.json") + " " + file("one/p.png") + " -o " + file("out/c.png") + " --strict")
          .status,
      0);
}

TEST_F(RenderCommand, MaximumSizeAppliesToTheUprightPicture) {
  // A 40 x 30 picture stored sideways (EXIF 6) whose top-left pixels are red.
  auto bitmap = test::makeBitmap(40, 30, [](size_t x, size_t y) {
    return x < 8 && y < 8 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  });
  std::vector<uint8_t> bytes;
  imageio::encodePNG(*bitmap, {1.0, 6, false}, bytes);
  imageio::writeFileAtomically(file("sideways.png"), bytes);
  ASSERT_EQ(test::runCli("render " + write("id.json", "[]") + " " + file("sideways.png") + " -o " + file("small.png") +
                         " --max-size 20")
                .status,
            0);
  auto small = load(file("small.png"));
  EXPECT_EQ(small->height(), 20u);
  EXPECT_EQ(small->width(), 15u);
  EXPECT_GT(test::pixelAt(small, 14, 0)[0], 240);  // the stored top-left corner is now the top right
}

// A masked colour layer: red at the left where the gradient mask is opaque, the picture at the right.
TEST_F(RenderCommand, MasksReachTheRender) {
  const std::string recipe = write("masked.json", R"([{"type": "color", "colorHex": "#ff0000", "mode": "Normal",
      "mask": {"gradient": {"colors": ["#ffffffff", "#ffffff00"]}}}])");
  const std::string input = picture("in.png"), out = file("out.png");
  auto result = test::runCli("render " + recipe + " " + input + " -o " + out);
  ASSERT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(result.out.find("not supported"), std::string::npos) << result.out;
  CGImageRef rendered = load(out), original = load(input);
  ASSERT_TRUE(rendered && original);
  EXPECT_GT(test::pixelAt(rendered, 0, 16)[0], 245);
  EXPECT_LT(test::pixelAt(rendered, 0, 16)[1], 12);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(test::pixelAt(rendered, 47, 16)[c], test::pixelAt(original, 47, 16)[c], 2);
}

// Every output format: a sideways Display P3 picture comes out upright (orientation baked in, no
// tag left) and still P3 (the profile carried, the pixels unchanged).
TEST_F(RenderCommand, EveryOutputFormatKeepsProfileAndBakesOrientation) {
  auto bitmap = test::makeBitmap(40, 30, [](size_t x, size_t y) {
    return x < 8 && y < 8 ? std::array<uint8_t, 4>{230, 20, 20, 255} : std::array<uint8_t, 4>{20, 20, 230, 255};
  });
  auto p3 = CGImage::allocate(40, 30, CGPixelFormat::RGBA8, CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3));
  std::memcpy(p3->mutableData(), bitmap->data(), bitmap->bytesPerRow() * 30);
  std::vector<uint8_t> bytes;
  imageio::encodeJPEG(*p3, {1.0, 6, false}, bytes);
  imageio::writeFileAtomically(file("sideways.jpg"), bytes);
  write("id.json", "[]");
  for (std::string name : {"out.heic", "out.webp", "out.tif", "out.png", "out.jpg"}) {
    SCOPED_TRACE(name);
    ASSERT_EQ(test::runCli("render " + file("id.json") + " " + file("sideways.jpg") + " -o " + file(name)).status, 0);
    auto decoded = imageio::decodeFile(file(name));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->properties["Orientation"], 1);
    EXPECT_EQ(decoded->image->colorSpace()->name(), kCGColorSpaceDisplayP3);
    auto upright = decoded->image;
    ASSERT_EQ(upright->width(), 30u);
    EXPECT_GT(imageio::testing::sample(*upright, 27, 2, 0), 180);  // the stored top-left corner is now the top right
    EXPECT_LT(imageio::testing::sample(*upright, 2, 2, 0), 60);
  }
}

TEST_F(RenderCommand, SixteenBitPicturesStaySixteenBitInPngAndTiff) {
  auto deep = CGImage::allocate(64, 4, CGPixelFormat::RGB16, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  for (size_t x = 0; x < 64; ++x)
    for (size_t c = 0; c < 3; ++c) reinterpret_cast<uint16_t*>(deep->mutableRow(1))[x * 3 + c] = uint16_t(x * 1000 + 3);
  std::vector<uint8_t> bytes;
  imageio::encodePNG(*deep, {1.0, 1, true}, bytes);
  imageio::writeFileAtomically(file("deep.png"), bytes);
  write("id.json", "[]");
  for (std::string name : {"out.tif", "out.png"}) {
    SCOPED_TRACE(name);
    ASSERT_EQ(test::runCli("render " + file("id.json") + " " + file("deep.png") + " -o " + file(name)).status, 0);
    auto decoded = imageio::decodeFile(file(name));
    ASSERT_TRUE(decoded);
    ASSERT_TRUE(decoded->image->format() == CGPixelFormat::RGB16 || decoded->image->format() == CGPixelFormat::RGBA16);
    EXPECT_NEAR(imageio::testing::sample(*decoded->image, 40, 1, 0), 40003, 2);  // a value no 8-bit step holds
  }
}

TEST_F(RenderCommand, InfoDescribesThePictureAndItsDepthMap) {
  imageio::writeFileAtomically(file("portrait.heic"),
                               imageio::testing::heifWithAuxiliary(64, 48, imageio::testing::kDepthAuxType));
  auto result = test::runCli("info " + file("portrait.heic"));
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "size: 64 x 48\norientation: 1 (shown 64 x 48)\ncolour space: sRGB\ndepth: yes\nmatte: no\n");
  imageio::writeFileAtomically(file("turned.jpg"), [] {
    std::vector<uint8_t> bytes;
    imageio::encodeJPEG(*test::solidBitmap(40, 30, {1, 2, 3, 255}), {1.0, 6, false}, bytes);
    return bytes;
  }());
  result = test::runCli("info " + file("turned.jpg"));
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "size: 40 x 30\norientation: 6 (shown 30 x 40)\ncolour space: sRGB\ndepth: no\nmatte: no\n");
  std::ofstream(file("broken.webp")) << "RIFF\x10\0\0\0WEBPVP8 garbage";
  EXPECT_EQ(test::runCli("info " + file("broken.webp")).status, 1);
}

TEST_F(RenderCommand, StoredDrawsRepeatPerPicture) {
  std::string recipe = write("random.json", R"([{"type": "adjustment",
      "random": [{"keyPath": "exposure", "minimum": -1, "maximum": 1}]}])");
  std::string pictures = picture("a.png") + " " + picture("b.png");
  fs::create_directories(file("first"));
  fs::create_directories(file("second"));
  std::string draws = file("draws.plist");
  auto result =
      test::runCli("render " + recipe + " " + pictures + " -o " + file("first") + " --randomization " + draws);
  ASSERT_EQ(result.status, 0) << result.out;
  result = test::runCli("render " + recipe + " " + pictures + " -o " + file("second") + " --randomization " + draws);
  ASSERT_EQ(result.status, 0) << result.out;
  for (std::string name : {"a.png", "b.png"}) {
    EXPECT_EQ(bytesOf(file("first/" + name)), bytesOf(file("second/" + name))) << name;
  }

  // Each picture has its own draws in the file, under its name.
  std::string stored = bytesOf(draws);
  auto dictionary = BVPropertyListRead(reinterpret_cast<const uint8_t*>(stored.data()), stored.size());
  ASSERT_TRUE(dictionary);
  EXPECT_TRUE(dictionary->contains("a.png") && dictionary->contains("b.png") && dictionary->size() == 2);
}

// Runs at the same time that share a draw file keep every picture's draws.
TEST_F(RenderCommand, ConcurrentRunsKeepEachOthersDraws) {
  std::string recipe = write("random.json", R"([{"type": "adjustment",
      "random": [{"keyPath": "exposure", "minimum": -1, "maximum": 1}]}])");
  std::string runs;
  for (std::string name : {"a", "b", "c", "d", "e", "f"}) {
    runs += std::string(BRENVIA_CLI) + " render " + recipe + " " + picture(name + ".png") + " -o " +
            file(name + ".jpg") + " --randomization " + file("shared.plist") + " & ";
  }
  ASSERT_EQ(std::system(("(" + runs + "wait) > /dev/null 2>&1").c_str()), 0);
  std::string stored = bytesOf(file("shared.plist"));
  auto dictionary = BVPropertyListRead(reinterpret_cast<const uint8_t*>(stored.data()), stored.size());
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(dictionary->size(), 6u);
}

TEST_F(RenderCommand, SliderMovesTheRecipe) {
  std::string recipe = write("slider.json", R"([{"type": "adjustment", "exposure": 0,
      "sliderInput": {"keyPath": "exposure", "minimum": -1, "maximum": 1}}])");
  std::string input = picture("in.png");
  for (std::string slider : {"0", "1"}) {
    auto result = test::runCli("render " + recipe + " " + input + " -o " + file(slider + ".png") + " --slider " +
                               slider + " --alpha-slider texture=0.5");
    ASSERT_EQ(result.status, 0) << result.out;
  }
  EXPECT_NE(bytesOf(file("0.png")), bytesOf(file("1.png")));
}

}  // namespace
}  // namespace brenvia
