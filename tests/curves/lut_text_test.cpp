#include "curves/lut_text.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace brenvia {
namespace {

std::array<float, 4> cellAt(const BVData& cube, size_t index) {
  std::array<float, 4> v;
  std::memcpy(v.data(), cube->data() + 16 * index, 16);
  return v;
}

// A 32^3 table whose every cell is (0.25, 0.5, 0.75), with header lines as tools write them.
std::string flatTable(const std::string& extra = "") {
  std::ostringstream text;
  text << "# made for a test\nTITLE \"flat\"\nLUT_3D_SIZE 32\n\n";
  for (int i = 0; i < 32 * 32 * 32; ++i) text << "0.25 0.5 0.75" << extra << "\n";
  return text.str();
}

TEST(LUTText, StrengthFadesTowardsTheIdentity) {
  auto full = BVLUTTextCube(flatTable(" 0.9"), 1, "flat.txt");  // a fourth number is ignored
  ASSERT_EQ(full->size(), 524288u);
  EXPECT_EQ(cellAt(full, 0), (std::array<float, 4>{0.25f, 0.5f, 0.75f, 1}));
  EXPECT_EQ(cellAt(full, 32767), (std::array<float, 4>{0.25f, 0.5f, 0.75f, 1}));
  auto none = BVLUTTextCube(flatTable(), 0, "flat.txt");
  EXPECT_EQ(cellAt(none, 31 + 2 * 32 + 5 * 1024), (std::array<float, 4>{1, float(2 / 31.0), float(5 / 31.0), 1}));
  auto half = BVLUTTextCube(flatTable(), 0.5f, "flat.txt");
  EXPECT_FLOAT_EQ(cellAt(half, 31)[0], (0.25f - 1) * 0.5f + 1);
}

TEST(LUTText, SkippedAndMissingLinesLeaveClearCellsAndWarn) {
  std::string text = flatTable();
  text.insert(text.find("0.25"), " 9 9 9\n\xc3\xa9tude\r\n");  // a blank-led line and a letter-led one
  text.erase(text.rfind("0.25"));                              // the last data line is gone
  test::LogCapture log;
  auto cube = BVLUTTextCube(text, 1, "short.txt");
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_TRUE(log.lines[0].starts_with("[BVCurvesFilter] WARNING: Invalid or incomplete data")) << log.lines[0];
  EXPECT_EQ(cellAt(cube, 32766), (std::array<float, 4>{0.25f, 0.5f, 0.75f, 1}));
  EXPECT_EQ(cellAt(cube, 32767), (std::array<float, 4>{0, 0, 0, 0}));
}

TEST(CubeFile, ReadsA3DTableWithItsDomain) {
  std::string text =
      "# comment\r\nTITLE \"Warm look\"\r\nLUT_3D_SIZE 2\r\nDOMAIN_MIN 0 0 0\r\nDOMAIN_MAX 1 1 2\r\n\r\n"
      "0 0 0\r\n1 0 0\r\n0 1 0\r\n1 1 0\r\n0 0 1\r\n1 0 1\r\n0 1 1\r\n  1.0\t1 1e0  \r\n";
  auto lut = BVCubeLUTRead(text, "warm.cube");
  ASSERT_TRUE(lut);
  EXPECT_EQ(lut->title, "Warm look");
  EXPECT_EQ(lut->dimension, 2u);
  EXPECT_EQ(lut->domainMax, (std::array<float, 3>{1, 1, 2}));
  ASSERT_EQ(lut->cube->size(), 8u * 16);
  EXPECT_EQ(cellAt(lut->cube, 1), (std::array<float, 4>{1, 0, 0, 1}));
  EXPECT_EQ(cellAt(lut->cube, 7), (std::array<float, 4>{1, 1, 1, 1}));
  auto resolve = BVCubeLUTRead(
      "LUT_3D_INPUT_RANGE -0.5 1.5\nLUT_3D_SIZE 2\n"
      "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n",
      "resolve.cube");
  ASSERT_TRUE(resolve);
  EXPECT_EQ(resolve->domainMin, (std::array<float, 3>{-0.5f, -0.5f, -0.5f}));
}

TEST(CubeFile, MalformedTablesAreRefusedWithOneLine) {
  const std::string eight = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
  struct Case {
    std::string text, reason;
  } cases[] = {
      {"LUT_1D_SIZE 4\n0 0 0\n", "1-D tables are not supported"},
      {eight, "data before LUT_3D_SIZE (line 1)"},
      {"LUT_3D_SIZE 2\n" + eight.substr(6), "8 data lines expected, 7 found"},
      {"LUT_3D_SIZE 2\n" + eight + "1 1 1\n", "more data lines than the size (line 10)"},
      {"LUT_3D_SIZE 2\n0 0\n", "three numbers (line 2)"},
      {"LUT_3D_SIZE 2\n0 0 nan\n", "three numbers"},
      {"LUT_3D_SIZE 129\n", "from 2 to 128"},
      {"LUT_3D_SIZE 2\nDOMAIN_MIN 1 0 0\n" + eight, "DOMAIN_MIN must be below DOMAIN_MAX"},
      {"LUT_3D_SIZE 2\n0 0 0\nTITLE \"late\"\n", "keyword after the data (line 3)"},
      {"LUT_3D_SIZE 2\nLUT_3D_SHAPE 4\n", "unknown keyword LUT_3D_SHAPE"},
      {"", "no LUT_3D_SIZE"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::LogCapture log;
    EXPECT_FALSE(BVCubeLUTRead(c.text, "bad.cube"));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].rfind("[BVCubeLUT] Could not read `bad.cube`: ", 0), 0u);
    EXPECT_NE(log.lines[0].find(c.reason), std::string::npos) << log.lines[0];
  }
  test::LogCapture log;
  EXPECT_FALSE(BVCubeLUTReadFile("/nonexistent/look.cube"));
  EXPECT_EQ(log.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia
