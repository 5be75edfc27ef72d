// Gradients read from recipe dictionaries, drawn on a bitmap context and made as engine images:
// the colour of each stop and the geometry of the ramp at chosen pixels.
#include "masks/gradient.h"
#include "image/graphics_utilities.h"
#include "platform/coreimage/ci_context.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

using RGB = std::array<int, 3>;

CGImageRef drawn(const BVGradient& gradient, CGSize size) {
  CGContextRef context = CGBitmapContextCreateWithSize(size);
  gradient.drawInContext(context);
  return CGBitmapContextCreateImage(context);
}

CGImageRef rendered(const BVGradient& gradient, CGSize size) {
  CIImageRef image = gradient.CIImageWithSize(size);
  return image ? CIContext::contextWithOptions({})->createCGImage(image, CGRectMake(0, 0, size.width, size.height))
               : nullptr;
}

// Pixel (x, y) with y counted from the bottom, as gradient coordinates are.
RGB at(const CGImageRef& image, size_t x, size_t yUp) { return test::rgbAt(*image, x, image->height() - 1 - yUp); }

void expectNear(RGB got, RGB want, int tolerance, const char* where) {
  for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(got[c], want[c], tolerance) << where << " channel " << c;
}

TEST(BVGradient, ParametersBuildTheKindAndPoints) {
  auto plain = std::dynamic_pointer_cast<BVLinearGradient>(BVGradient::gradientWithParameters(Value::object()));
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->startPoint(), (CGPoint{0, 0}));
  EXPECT_EQ(plain->endPoint(), (CGPoint{1, 0}));
  EXPECT_TRUE(plain->colors().empty());
  EXPECT_TRUE(std::dynamic_pointer_cast<BVLinearGradient>(BVGradient::gradientWithParameters({{"type", "conic"}})));

  auto vertical = std::dynamic_pointer_cast<BVLinearGradient>(
      BVGradient::gradientWithParameters({{"direction", "vertical"}, {"endPointX", 0.5}}));
  EXPECT_EQ(vertical->endPoint(), (CGPoint{0.5, 1}));
  EXPECT_EQ(vertical->center(), (CGPoint{0.25, 0.5}));

  auto radial = std::dynamic_pointer_cast<BVRadialGradient>(
      BVGradient::gradientWithParameters({{"type", "radial"}, {"startRadius", 0.2}, {"endCenterX", 0.1}}));
  ASSERT_TRUE(radial);
  EXPECT_EQ(radial->startCenter(), (CGPoint{0.5, 0.5}));
  EXPECT_FLOAT_EQ(float(radial->endCenter().x), 0.1f);
  EXPECT_DOUBLE_EQ(radial->endRadius(), 1.0);
  radial->setRadius(0.3);
  EXPECT_DOUBLE_EQ(radial->startRadius(), 0.0);
}

// Hex colours come back as 0-to-1 dictionaries that build the same gradient, and through the
// keyed archive as well; a bad colour is dropped with a log line, so later stops move up.
TEST(BVGradient, ColoursSurviveTheRoundTrip) {
  test::LogCapture log;
  auto gradient = BVGradient::gradientWithParameters(
      {{"type", "radial"}, {"colors", {"#ff0000", "#12345", 7, "#0000ff80"}}, {"radiusScaling", "fill"}});
  EXPECT_EQ(log.lines, std::vector<std::string>{"[BVGradient] Invalid color: #12345"});
  ASSERT_EQ(gradient->colors().size(), 2u);
  const Value parameters = gradient->parameters();
  EXPECT_EQ(parameters["colors"][1],
            Value({{"colorRed", 0.0}, {"colorGreen", 0.0}, {"colorBlue", 1.0}, {"colorAlpha", double(128 / 255.0f)}}));
  EXPECT_EQ(BVGradient::gradientWithParameters(parameters)->parameters(), parameters);

  BVGradient::registerCodingClasses();
  const std::vector<uint8_t> archive = BVKeyedArchiver::archivedData(*gradient);
  auto decoded = BVKeyedUnarchiver::unarchivedObjectOfClass<BVGradient>(archive.data(), archive.size());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->parameters(), parameters);
}

// Any number of stops at their locations on the drawing road, flat beyond both ends; locations of
// the wrong count space the stops evenly.
TEST(BVGradient, DrawnStopsLandAtTheirLocations) {
  const Value colours = {"#ff0000", "#00ff00", "#0000ff"};
  const CGSize size{101, 4};
  CGImageRef even = drawn(*BVGradient::gradientWithParameters({{"colors", colours}}), size);
  expectNear(at(even, 0, 0), {255, 0, 0}, 3, "first stop");
  expectNear(at(even, 50, 0), {0, 255, 0}, 6, "middle stop");
  expectNear(at(even, 100, 0), {0, 0, 255}, 3, "last stop");
  expectNear(at(even, 25, 0), {128, 128, 0}, 8, "between the first two");

  CGImageRef placed =
      drawn(*BVGradient::gradientWithParameters({{"colors", colours}, {"locations", {0.0, 0.2, 0.4}}}), size);
  expectNear(at(placed, 20, 0), {0, 255, 0}, 6, "moved middle stop");
  expectNear(at(placed, 90, 0), {0, 0, 255}, 3, "beyond the last location");

  CGImageRef miscounted =
      drawn(*BVGradient::gradientWithParameters({{"colors", colours}, {"locations", {0.0, 0.2}}}), size);
  EXPECT_EQ(test::largestColourDifference(*miscounted, *even), 0);
}

// The vertical ramp starts at the bottom row; rotation turns the drawn ramp about the centre and
// leaves the engine image alone. The engine mixes in linear light, so its ends are a little lighter.
TEST(BVGradient, GeometryOnBothRoads) {
  const CGSize size{64, 64};
  auto vertical = BVGradient::gradientWithParameters({{"direction", "vertical"}, {"colors", {"#000000", "#ffffff"}}});
  for (CGImageRef image : {drawn(*vertical, size), rendered(*vertical, size)}) {
    ASSERT_TRUE(image);
    EXPECT_LT(at(image, 32, 0)[0], 30);
    EXPECT_GT(at(image, 32, 63)[0], 245);
    EXPECT_NEAR(at(image, 10, 40)[0], at(image, 50, 40)[0], 1);
  }

  auto turned =
      BVGradient::gradientWithParameters({{"colors", {"#000000", "#ffffff"}}, {"rotation", 90}, {"endPointX", 1.0}});
  CGImageRef turnedDrawing = drawn(*turned, size);
  EXPECT_NEAR(at(turnedDrawing, 5, 32)[0], at(turnedDrawing, 58, 32)[0], 1) << "the ramp runs up or down now";
  EXPECT_GT(std::abs(at(turnedDrawing, 32, 5)[0] - at(turnedDrawing, 32, 58)[0]), 200);
  CGImageRef turnedEngine = rendered(*turned, size);
  EXPECT_GT(at(turnedEngine, 58, 32)[0] - at(turnedEngine, 5, 32)[0], 150);
}

TEST(BVGradient, RadialRadiiFollowTheScalingMode) {
  const CGSize wide{200, 100};
  const Value parameters = {{"type", "radial"}, {"colors", {"#ffffff", "#000000"}}, {"endRadius", 0.5}};
  for (bool fill : {false, true}) {
    Value p = parameters;
    if (fill) p["radiusScaling"] = "fill";
    auto gradient = BVGradient::gradientWithParameters(p);
    // The ramp ends 50 pixels from the centre when fitting the short side, 100 when filling the long one.
    const size_t end = fill ? 100 : 50;
    // Half way the drawing mixes the encoded values and the engine linear light.
    for (auto [image, halfWay] : {std::pair{drawn(*gradient, wide), 128}, std::pair{rendered(*gradient, wide), 188}}) {
      ASSERT_TRUE(image);
      expectNear(at(image, 100, 50), {255, 255, 255}, 4, "centre");
      EXPECT_NEAR(at(image, 100 + end / 2, 50)[0], halfWay, 8) << "half way, fill " << fill;
      if (!fill) expectNear(at(image, 170, 50), {0, 0, 0}, 2, "beyond the end radius");
    }
  }
}

TEST(BVGradient, EngineImageTakesTwoColours) {
  test::LogCapture log;
  auto gradient =
      BVGradient::gradientWithParameters({{"colors", {"#ff0000", "#0000ff", "#00ff00"}}, {"endPointX", 0.5}});
  CGImageRef image = rendered(*gradient, {64, 4});
  EXPECT_EQ(log.lines, std::vector<std::string>{"[BVLinearGradient] Specified more than 2 colors in CI path. This is "
                                                "not supported and additional colors are being ignored."});
  expectNear(at(image, 63, 0), {0, 0, 255}, 6, "second colour beyond the end");
}

}  // namespace
}  // namespace brenvia
