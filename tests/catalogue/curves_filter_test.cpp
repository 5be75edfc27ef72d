#include "catalogue/curves_filter.h"

#include "curves/acv_test_support.h"
#include "curves/curve_points.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace brenvia {
namespace {

using Points = BVPointList;

TEST(CurvePoints, ABadPointCostsOnlyThatPoint) {
  struct Case {
    const char* text;
    Points points;
    const char* logged;  // the part of the one log line that names the fault, or nothing
  };
  const Case cases[] = {
      {"", {}, nullptr},
      {"{0 0},{128 140},{255 255}", {{0, 0}, {128, 140}, {255, 255}}, nullptr},
      {"{0 0},{255 255", {{0, 0}}, "`{255 255`, a curve point"},
      {"{0 0 0}", {}, "`0 0 0`, a curve point"},
      {"{0  0}", {}, "`0  0`, a curve point"},
      {"}1 2{", {}, "`}1 2{`, a curve point"},
      {"{x 7.5}", {{0, 7.5}}, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::LogCapture log;
    EXPECT_EQ(BVCurvePointsFromString(c.text), c.points);
    if (!c.logged) {
      EXPECT_TRUE(log.lines.empty());
    } else {
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_NE(log.lines[0].find(c.logged), std::string::npos) << log.lines[0];
    }
  }
}

std::shared_ptr<BVCurvesFilter> curvesFilter(const Value& parameters, const std::string& folder = "") {
  auto filter = std::make_shared<BVCurvesFilter>();
  filter->initWithParameters(parameters, folder.empty() ? std::nullopt : std::optional(folder));
  return filter;
}

TEST(BVCurvesFilter, PointsNeedTheMasterKeyAndWinOverFiles) {
  auto noMaster = curvesFilter({{"redPoints", "{0 255},{255 0}"}, {"acvFileName", "missing.acv"}});
  EXPECT_FALSE(noMaster->redCurve());
  EXPECT_FALSE(noMaster->redCCurve());  // falls back to the (missing) ACV file

  test::LogCapture log;
  auto points = curvesFilter({{"masterPoints", ""}, {"redPoints", "{0 255},{255 0}"}, {"acvFileName", "missing.acv"}});
  ASSERT_TRUE(points->redCCurve());
  EXPECT_EQ(points->redCCurve()->LUT()[0], 255);
  EXPECT_EQ(points->greenCCurve()->LUT()[40], 40);  // absent strings are identity curves
  EXPECT_EQ(points->redCurve()->masterCurve()->points(), (Points{{0, 0}, {255, 255}}));
  EXPECT_TRUE(log.lines.empty());  // the ACV file was never opened
}

// A 256 x 160 copy of the example photo, decoded at reduced size.
std::shared_ptr<BVImage> photo() {
  imageio::DecodeOptions options;
  options.maxPixelSize = 320;
  auto decoded = imageio::decodeFile(std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg", options);
  return BVImage::initWithCGImage(decoded->image);
}

std::shared_ptr<BVImage> render(const BVFilterRef& filter, const std::shared_ptr<BVImage>& image, bool bitmapRoad) {
  BVImageProcessorOptions options;
  options.renderWithCoreGraphics = bitmapRoad;
  return BVImageProcessor::initWithFilters({filter}, options)->process(image);
}

// The largest distance of any channel from 255 minus the original, over a grid of pixels.
int worstInversionError(const CGImageRef& original, const CGImageRef& inverted) {
  int worst = 0;
  for (size_t y = 0; y < original->height(); y += 7)
    for (size_t x = 0; x < original->width(); x += 5)
      for (size_t c = 0; c < 3; ++c)
        worst = std::max(worst, std::abs(255 - test::rgbAt(*original, x, y)[c] - test::rgbAt(*inverted, x, y)[c]));
  return worst;
}

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// The same inversion from each kind of source, on both roads where the source has one.
TEST(BVCurvesFilter, EverySourceKindInvertsAPhoto) {
  test::TempFolder folder;
  auto inverted = acv(4, {{{0, 255}, {255, 0}}, {{0, 0}, {255, 255}}, {{0, 0}, {255, 255}}, {{0, 0}, {255, 255}}});
  writeFile(folder.path("invert.acv"), std::string(inverted->begin(), inverted->end()));
  std::string table = "TITLE \"invert\"\n# 32 cubed\n";
  for (int b = 0; b < 32; ++b)
    for (int g = 0; g < 32; ++g)
      for (int r = 0; r < 32; ++r)
        table += std::to_string(1 - r / 31.0) + " " + std::to_string(1 - g / 31.0) + " " +
                 std::to_string(1 - b / 31.0) + "\n";
  writeFile(folder.path("invert.txt"), table);
  writeFile(folder.path("invert.cube"), "LUT_3D_SIZE 2\n1 1 1\n0 1 1\n1 0 1\n0 0 1\n1 1 0\n0 1 0\n1 0 0\n0 0 0\n");

  const auto original = photo();
  struct Source {
    Value parameters;
    bool drawable;
  };
  const Source sources[] = {
      {{{"masterPoints", "{0 255},{255 0}"}}, true},
      {{{"acvFileName", "invert.acv"}}, true},
      {{{"lutFileName", "invert.txt"}}, false},
      {{{"lutFileName", "invert.cube"}}, false},
  };
  for (const Source& source : sources) {
    SCOPED_TRACE(source.parameters.dump());
    auto out = render(curvesFilter(source.parameters, folder.path("")), original, false);
    ASSERT_TRUE(out);
    EXPECT_LE(worstInversionError(original->CGImage(), out->CGImage()), 1);
    if (!source.drawable) continue;
    auto drawn = render(curvesFilter(source.parameters, folder.path("")), original, true);
    ASSERT_TRUE(drawn);
    EXPECT_EQ(worstInversionError(original->CGImage(), drawn->CGImage()), 0);
  }
}

TEST(BVCurvesFilter, TableStrengthAndCubesKeptPerStrength) {
  test::TempFolder folder;
  std::string table;
  for (int i = 0; i < 32 * 32 * 32; ++i) table += "0.25 0.5 0.75 9\n";
  writeFile(folder.path("flat.txt"), table);
  auto cubeOf = [](BVCurvesFilter& filter) {
    CIFilterArray operations = filter.CIFiltersForSize({8, 8});
    EXPECT_EQ(operations.size(), 1u);
    return operations[0]->data("inputCubeData");
  };
  auto cell = [](const CIData& cube, size_t index) {
    const float* cells = reinterpret_cast<const float*>(cube->data());
    return std::array<float, 4>{cells[4 * index], cells[4 * index + 1], cells[4 * index + 2], cells[4 * index + 3]};
  };
  auto filter = curvesFilter({{"lutFileName", "flat.txt"}, {"alpha", 1.0}}, folder.path(""));
  const CIData full = cubeOf(*filter);
  EXPECT_EQ(cell(full, 5), (std::array<float, 4>{0.25f, 0.5f, 0.75f, 1}));  // a fourth number is ignored
  EXPECT_EQ(cubeOf(*filter), full);
  filter->setAlpha(0);
  const CIData none = cubeOf(*filter);
  EXPECT_EQ(cell(none, 31 + 32 * 2), (std::array<float, 4>{1, float(2 / 31.0), 0, 1}));  // the identity
  filter->setAlpha(1);
  EXPECT_EQ(cubeOf(*filter), full);
  EXPECT_EQ(cubeOf(*curvesFilter({{"lutFileName", "flat.txt"}}, folder.path(""))), full);  // shared by a second filter
}

TEST(BVCurvesFilter, WithoutAnySourceThePictureStays) {
  test::LogCapture log;
  auto filter = curvesFilter({{"lutFileName", "absent.cube"}});
  EXPECT_TRUE(filter->CIFiltersForSize({8, 8}).empty());
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].substr(0, 33), "[BVCubeLUT] Could not read `absen");
  log.lines.clear();
  EXPECT_TRUE(curvesFilter({{"lutFileName", "absent.txt"}})->CIFiltersForSize({8, 8}).empty());
  EXPECT_EQ(log.lines.size(), 1u);  // not one line per missing cell
  auto picture = BVImage::initWithCGImage(test::solidBitmap(4, 4, {10, 20, 30, 255}));
  auto drawn = render(curvesFilter(Value::object()), picture, true);
  EXPECT_EQ(test::rgbAt(*drawn->CGImage(), 1, 1), (std::array<int, 3>{10, 20, 30}));
  EXPECT_TRUE(log.lines.back().starts_with("[BVCurvesFilter] ")) << log.lines.back();
}

}  // namespace
}  // namespace brenvia
