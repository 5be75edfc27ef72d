// Faces of a freely licensed portrait, alone and at several sizes on one canvas, and none in a
// landscape; the eyes of a face lie in its upper half, left before right.
#include "platform/coreimage/ci_detector.h"

#include "cli_support.h"
#include "platform/coreimage/ci_context.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace brenvia {
namespace {

const std::string kPortrait = std::string(BRENVIA_TEST_DATA) + "/astronaut.png";
// The face of the 512 x 512 portrait, marked by hand (x, y up, width, height).
constexpr CGRect kMarkedFace{{175, 348}, {97, 100}};

std::shared_ptr<CIDetector> detector() {
  auto made = CIDetector::detectorOfType(CIDetectorTypeFace, nullptr, Value::object());
  EXPECT_TRUE(made) << "the cascade files of the OpenCV data package are needed";
  return made;
}

// Within 15 % of the face's size of the marked box on every side (detection runs on a reduced copy).
void expectFaceNear(const CIFaceFeature& found, const CGRect& marked) {
  const double tolerance = 0.15 * marked.size.width;
  EXPECT_NEAR(found.bounds.origin.x, marked.origin.x, tolerance);
  EXPECT_NEAR(found.bounds.origin.y, marked.origin.y, tolerance);
  EXPECT_NEAR(CGRectGetMaxX(found.bounds), CGRectGetMaxX(marked), tolerance);
  EXPECT_NEAR(CGRectGetMaxY(found.bounds), CGRectGetMaxY(marked), tolerance);
  ASSERT_TRUE(found.hasLeftEyePosition && found.hasRightEyePosition);
  EXPECT_LT(found.leftEyePosition.x, found.rightEyePosition.x);
  for (CGPoint eye : {found.leftEyePosition, found.rightEyePosition}) {
    EXPECT_TRUE(CGRectContainsPoint(found.bounds, eye));
    EXPECT_GT(eye.y, CGRectGetMidY(found.bounds)) << "eyes sit in the upper half, y up";
  }
}

CGRect scaledFace(double scale, CGPoint origin) {
  return CGRectMake(origin.x + kMarkedFace.origin.x * scale, origin.y + kMarkedFace.origin.y * scale,
                    kMarkedFace.size.width * scale, kMarkedFace.size.height * scale);
}

TEST(FaceDetector, FindsThePortraitsFace) {
  auto faces = detector();
  ASSERT_TRUE(faces);
  std::vector<CIFaceFeature> found = faces->featuresInImage(CIImage::imageWithContentsOfFile(kPortrait));
  ASSERT_EQ(found.size(), 1u);
  expectFaceNear(found[0], kMarkedFace);

  // Faces smaller than the minimum feature size are passed over.
  auto large = CIDetector::detectorOfType(CIDetectorTypeFace, nullptr, {{"CIDetectorMinFeatureSize", 0.5}});
  EXPECT_TRUE(large->featuresInImage(CIImage::imageWithContentsOfFile(kPortrait)).empty());
}

// Three copies on a grey 2400 x 900 canvas, scaled bilinearly; the canvas is reduced for detection.
TEST(FaceDetector, FindsEveryCopyAtItsSize) {
  auto faces = detector();
  ASSERT_TRUE(faces);
  CIImageRef portrait = CIImage::imageWithContentsOfFile(kPortrait);
  CGImageRef source = CIContext::context()->createCGImage(portrait, portrait->extent());
  struct Copy {
    double scale;
    CGPoint origin;  // bottom left, y up
  };
  const Copy copies[] = {{1.6, {50, 20}}, {1.2, {1000, 200}}, {0.9, {1800, 420}}};
  const size_t width = 2400, height = 900;
  CGImageRef canvas = test::makeBitmap(width, height, [&](size_t x, size_t row) {
    const double y = double(height - 1 - row);
    for (const Copy& c : copies) {
      const double u = (x + 0.5 - c.origin.x) / c.scale - 0.5, v = (y + 0.5 - c.origin.y) / c.scale - 0.5;
      if (u < 0 || v < 0 || u >= 511 || v >= 511) continue;
      const size_t x0 = size_t(u), y0 = 511 - size_t(v);  // source rows run top down
      const double fx = u - double(x0), fy = v - std::floor(v);
      std::array<uint8_t, 4> p{0, 0, 0, 255};
      for (size_t ch = 0; ch < 3; ++ch) {
        const auto at = [&](size_t sx, size_t sy) { return double(test::pixelAt(source, sx, sy)[ch]); };
        const double bottom = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx;
        const double top = at(x0, y0 - 1) * (1 - fx) + at(x0 + 1, y0 - 1) * fx;
        p[ch] = uint8_t(std::lround(bottom * (1 - fy) + top * fy));
      }
      return p;
    }
    return std::array<uint8_t, 4>{200, 200, 200, 255};
  });
  std::vector<CIFaceFeature> found = faces->featuresInImage(CIImage::imageWithCGImage(canvas));
  ASSERT_EQ(found.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    expectFaceNear(found[i], scaledFace(copies[i].scale, copies[i].origin));
  }
}

TEST(FaceDetector, FindsNoFaceInALandscapeAndListsFacesAtTheTool) {
  auto faces = detector();
  ASSERT_TRUE(faces);
  const std::string landscape = std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg";
  EXPECT_TRUE(faces->featuresInImage(CIImage::imageWithContentsOfFile(landscape)).empty());

  auto listed = test::runCli("info --faces " + kPortrait);
  ASSERT_EQ(listed.status, 0) << listed.out;
  EXPECT_NE(listed.out.find("faces: 1\nface: "), std::string::npos) << listed.out;
  EXPECT_NE(test::runCli("info --faces " + landscape).out.find("faces: 0\n"), std::string::npos);
}

// A folder named for the cascades is the only place looked in.
TEST(FaceDetector, MissingCascadesAreReportedClearly) {
  EXPECT_FALSE(CIDetector::detectorOfType("CIDetectorTypeQRCode", nullptr, Value::object()));
  test::TempFolder empty;
  ::setenv("BRENVIA_CASCADE_FOLDER", empty.path("").c_str(), 1);
  auto result = test::runCli("info --faces " + kPortrait);
  ::unsetenv("BRENVIA_CASCADE_FOLDER");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("[CIDetector] Face detection needs the Haar cascade files"), std::string::npos)
      << result.out;
}

}  // namespace
}  // namespace brenvia
