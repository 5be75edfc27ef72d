#include "curves/acv_object.h"
#include "curves/color_curve.h"
#include "curves/data_scanner.h"
#include "curves/acv_test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>

namespace brenvia {
namespace {

CColorCurveRef curveOf(BVPointList points, CColorCurveRef master = nullptr) {
  return CColorCurve::initWithName("test", std::move(points), std::move(master));
}

double yAt(const BVPointList& list, size_t k) { return list.at(k).y; }

TEST(CurveSpline, SecondDerivativesAndSamples) {
  auto m = secondDerivative({{0, 0}, {64, 100}, {255, 255}});
  ASSERT_EQ(m.size(), 3u);
  EXPECT_EQ(m[0], 0);
  EXPECT_NEAR(m[1], -0.00883507853403, 1e-13);
  EXPECT_EQ(m[2], 0);

  auto diagonal = PointsInCurve({{0, 0}, {255, 255}});
  ASSERT_EQ(diagonal.size(), 256u);
  for (size_t k = 0; k < 256; ++k) EXPECT_DOUBLE_EQ(diagonal[k].y, double(k));

  // The spline runs on rounded points; the list ends with the exact last point.
  auto normalized = curveOf(BVCurve({{0, 0}, {0.5, 0.5}}, nullptr, BVCurveOptionNormalized).points());
  const auto& list = normalized->interpolatedPoints();
  EXPECT_EQ(list[129], (CGPoint{128.5, 127.5}));
  EXPECT_EQ(list.back(), (CGPoint{254.5, 127.5}));

  EXPECT_TRUE(curve({{3, 3}}).empty());
  EXPECT_TRUE(curve({{0, 0}, {1e300, 1}}).empty());  // damaged input is not sampled for ever
}

TEST(CurveSpline, LevelsOutsideTheControlPoints) {
  auto single = curveOf({{128, 64}})->interpolatedPoints();
  ASSERT_EQ(single.size(), 256u);
  EXPECT_EQ(single[127], (CGPoint{127, 0}));
  EXPECT_EQ(single[128], (CGPoint{128, 64}));
  EXPECT_EQ(single[255], (CGPoint{255, 128}));  // the last point's x, not its y

  auto late = curveOf({{10, 50}, {255, 255}})->interpolatedPoints();
  EXPECT_EQ(yAt(late, 9), 0);
  EXPECT_EQ(yAt(late, 10), 50);
  auto early = curveOf({{0, 0}, {200, 180}});
  EXPECT_EQ(yAt(early->interpolatedPoints(), 201), 200);
  EXPECT_EQ(early->LUT()[255], 200);
}

TEST(CurveTable, BytesOfTheSplineWithWrapAround) {
  auto identity = curveOf({{0, 0}, {255, 255}});
  EXPECT_FALSE(identity->identity());  // not known before the table is made
  for (size_t i = 0; i < 256; ++i) ASSERT_EQ(identity->LUT()[i], i);
  EXPECT_TRUE(identity->identity());
  EXPECT_TRUE(identity->isEmpty());

  auto s = curveOf({{0, 0}, {64, 48}, {192, 208}, {255, 255}})->LUT();
  EXPECT_EQ((std::array<int, 2>{s[32], s[224]}), (std::array<int, 2>{21, 235}));
  auto lift = curveOf({{0, 0}, {128, 200}, {255, 255}})->LUT();
  EXPECT_EQ((std::array<int, 2>{lift[64], lift[192]}), (std::array<int, 2>{114, 241}));

  auto over = curveOf({{0, 0}, {128, 250}, {255, 255}});
  const auto& points = over->interpolatedPoints();
  double peak = 0;
  for (const CGPoint& p : points) peak = std::max(peak, p.y);
  EXPECT_NEAR(peak, 275.47, 0.01);
  EXPECT_EQ((std::array<int, 4>{over->LUT()[133], over->LUT()[134], over->LUT()[135], over->LUT()[136]}),
            (std::array<int, 4>{255, 0, 0, 1}));

  auto image = over->CGImage();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 256u);
  EXPECT_EQ(image->row(0)[136], 1);
}

TEST(CurveTable, MasterCurveAddsToPointsButComposesInTheTable) {
  auto channel = curveOf({{0, 0}, {128, 200}, {255, 255}});
  EXPECT_EQ(curveOf(channel->points(), curveOf({{0, 0}, {255, 255}}))->interpolatedPointsWithMasterInfluence(),
            channel->interpolatedPoints());
  auto master = curveOf({{0, 20}, {255, 255}});
  auto withMaster = curveOf(channel->points(), master);
  const auto& added = withMaster->interpolatedPointsWithMasterInfluence();
  EXPECT_DOUBLE_EQ(added[0].y, 20);
  EXPECT_DOUBLE_EQ(added[64].y, channel->interpolatedPoints()[64].y + master->interpolatedPoints()[64].y - 64);
  EXPECT_EQ(withMaster->LUT()[64], master->LUT()[channel->LUT()[64]]);
}

TEST(CurveValue, OptionsAndCopies) {
  BVCurve ends({{0.5, 0.25}}, nullptr, BVCurveOptionNormalized | BVCurveOptionEndPoints);
  EXPECT_EQ(ends.points(), (BVPointList{{0, 0}, {127.5, 63.75}, {255, 255}}));
  BVCurve withMaster({{1, 2}}, std::make_shared<const BVCurve>(ends), 0);
  BVCurve copied = withMaster.copy();
  EXPECT_EQ(copied.points(), withMaster.points());
  ASSERT_TRUE(copied.masterCurve());
  EXPECT_NE(copied.masterCurve(), withMaster.masterCurve());
  EXPECT_EQ(copied.masterCurve()->points(), ends.points());
}

const BVPointList kDiagonal{{0, 0}, {255, 255}};

TEST(ACVFile, ReadsFourCurvesAndMakesTheirCube) {
  auto object = CACVObject::initWithData(acv(4, {kDiagonal, kDiagonal, kDiagonal, kDiagonal}));
  ASSERT_TRUE(object);
  EXPECT_TRUE(object->RGBCurve()->isEmpty() && object->blueCurve()->isEmpty());
  EXPECT_EQ(object->redCurve()->masterCurve(), object->RGBCurve());
  EXPECT_TRUE(CACVObject::initWithData(acv(0, {kDiagonal, kDiagonal, kDiagonal, kDiagonal})));

  auto cube = object->threeDimensionalLUT(32, 1);
  ASSERT_EQ(cube->size(), 524288u);
  auto cell = [&](const BVData& c, size_t r, size_t g, size_t b) {
    std::array<float, 4> v;
    std::memcpy(v.data(), c->data() + 16 * (r + g * 32 + b * 32 * 32), 16);
    return v;
  };
  EXPECT_EQ(cell(cube, 5, 17, 31), (std::array<float, 4>{float(std::round(255.0 * 5 / 31) / 255), float(std::round(255.0 * 17 / 31) / 255), 1, 1}));

  // Strength 0 is the identity whatever the curves say.
  auto strong = CACVObject::initWithData(acv(4, {{{0, 40}, {255, 200}}, {{0, 90}, {255, 10}}, kDiagonal, kDiagonal}));
  ASSERT_TRUE(strong);
  EXPECT_EQ(*strong->threeDimensionalLUT(32, 0), *cube);
  EXPECT_NE(*strong->threeDimensionalLUT(32, 0.5f), *cube);
  EXPECT_EQ(CACVObject::threeDimensionalLUT(nullptr, nullptr, nullptr, 2, 1)->size(), 128u);
  EXPECT_EQ(cell(CACVObject::threeDimensionalLUT(nullptr, nullptr, nullptr, 32, 1), 0, 0, 0), (std::array<float, 4>{1, 1, 1, 1}));
}

TEST(ACVFile, PointsAreStoredOutputFirstAndDamagedFilesAreRefused) {
  auto file = acv(4, {kDiagonal, kDiagonal, kDiagonal, kDiagonal, kDiagonal});
  (*std::const_pointer_cast<std::vector<uint8_t>>(file))[10] = 0x40;  // record 0, point 1, y = 0x40FF
  auto read = CACVObject::initWithData(acv(4, {{{128, 64}}, kDiagonal, kDiagonal, kDiagonal}));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->RGBCurve()->points()[0], (CGPoint{128, 64}));
  EXPECT_TRUE(CACVObject::initWithData(file));  // a fifth complete record is read and dropped

  auto cutInFifth = std::make_shared<std::vector<uint8_t>>(*file);
  cutInFifth->pop_back();
  auto cutInPoint = std::make_shared<std::vector<uint8_t>>(file->begin(), file->begin() + 13);
  auto hugeCount = acv(4, {kDiagonal, kDiagonal, kDiagonal, kDiagonal});
  (*std::const_pointer_cast<std::vector<uint8_t>>(hugeCount))[4] = 0x80;
  for (const BVData& bad :
       {BVData(cutInFifth), BVData(cutInPoint), hugeCount, BVData(), acv(4, {kDiagonal, {}, kDiagonal, kDiagonal})})
    EXPECT_FALSE(CACVObject::initWithData(bad));
  EXPECT_FALSE(CACVObject::initWithURL("/nonexistent/file.acv"));
}

TEST(ACVFile, SurvivesAKeyedRoundTrip) {
  CACVObject::registerCodingClass();
  auto object = CACVObject::initWithData(acv(4, {{{0, 20}, {255, 255}}, {{0, 0}, {100, 140}, {255, 255}}, kDiagonal, kDiagonal}));
  ASSERT_TRUE(object);
  auto bytes = BVKeyedArchiver::archivedData(*object);
  auto back = BVKeyedUnarchiver::unarchivedObjectOfClass<CACVObject>(bytes.data(), bytes.size());
  ASSERT_TRUE(back && back->data() && back->redCurve());
  EXPECT_EQ(*back->data(), *object->data());
  EXPECT_EQ(back->redCurve()->points(), object->redCurve()->points());
  EXPECT_EQ(*back->redCurve()->name(), "red");
  ASSERT_TRUE(back->redCurve()->masterCurve());
  EXPECT_EQ(back->redCurve()->masterCurve()->points(), object->RGBCurve()->points());
  EXPECT_EQ(*back->threeDimensionalLUT(8, 1), *object->threeDimensionalLUT(8, 1));
}

TEST(DataScanner, BinaryAndTextScans) {
  auto bytes = [](std::string_view text) { return std::make_shared<const std::vector<uint8_t>>(text.begin(), text.end()); };
  CDataScanner binary(bytes("\x01\x02\x03"));
  int16_t v = 0;
  EXPECT_TRUE(binary.scanIntoShort(&v));
  EXPECT_EQ(v, 0x0201);
  EXPECT_FALSE(binary.scanIntoShort(&v));
  EXPECT_EQ(binary.scanLocation(), 2u);
  binary.setScanLocation(0);
  binary.setEndianness(CDataScannerEndiannessBig);
  EXPECT_TRUE(binary.scanIntoShort(&v));
  EXPECT_EQ(v, 0x0102);
  binary.setScanLocation(1000);  // no bounds test, and nothing reads past the end
  EXPECT_TRUE(binary.isAtEnd());
  EXPECT_EQ(binary.bytesRemaining(), 0u);
  EXPECT_EQ(binary.currentCharacter(), 0);
  EXPECT_EQ(binary.remainingString(), "");

  CDataScanner text(bytes("  LUT 3.5 -12 017 rest"));
  text.skipWhitespace();
  std::string word;
  EXPECT_TRUE(text.scanUTF8String("LUT", &word));
  EXPECT_FALSE(text.scanUTF8String("LUTS"));
  text.skipWhitespace();
  Value number;
  EXPECT_TRUE(text.scanNumber(&number));
  EXPECT_EQ(number, 3.5);
  text.skipWhitespace();
  EXPECT_TRUE(text.scanNumber(&number));
  EXPECT_EQ(number, -12);
  text.skipWhitespace();
  EXPECT_TRUE(text.scanNumber(&number));
  EXPECT_EQ(number, 15);  // a leading zero reads octal
  EXPECT_FALSE(text.scanNumber(&number));
  EXPECT_TRUE(text.scanUpToString("st", &word));
  EXPECT_EQ(word, " re");
  EXPECT_FALSE(text.scanUpToString("zz"));
  EXPECT_TRUE(text.scanUpToCharactersFromSet("x", &word));
  EXPECT_EQ(word, "st");
  EXPECT_TRUE(text.isAtEnd());
}

}  // namespace
}  // namespace brenvia
