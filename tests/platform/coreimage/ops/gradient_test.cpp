#include "platform/coreimage/ops/compositing_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace brenvia {
namespace {

using test::Pixel;

CIImageRef generate(std::string_view name, const CIFilterParameters& parameters = {}) {
  auto filter = CIFilter::filterWithName(name, parameters);
  return filter ? filter->outputImage() : nullptr;
}

// mix(Pm(c0), Pm(c1), t) in double.
Pixel mixed(const Pixel& c0, const Pixel& c1, double t) {
  Pixel out;
  for (size_t c = 0; c < 4; ++c) {
    double p0 = c == 3 ? c0[3] : double(c0[c]) * c0[3], p1 = c == 3 ? c1[3] : double(c1[c]) * c1[3];
    out[c] = float(p0 + (p1 - p0) * t);
  }
  return out;
}

void expectPixel(const Pixel& got, const Pixel& want, const char* where) {
  for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(got[c], want[c], 2e-6) << where << " channel " << c;
}

TEST(ConstantColorGenerator, PremultipliedColourEverywhere) {
  auto half = generate("CIConstantColorGenerator", {{"inputColor", CIColor(0.2, 0.6, 1, 0.5)}});
  ASSERT_TRUE(half);
  EXPECT_TRUE(CGRectIsInfinite(half->extent()));
  expectPixel(test::Rendered(half, CGRectMake(-1e6, 3e5, 2, 1)).at(-1e6, 3e5), {0.1f, 0.3f, 0.5f, 0.5f}, "far out");
}

TEST(LinearGradient, RampAlongTheAxisFlatBeyond) {
  Pixel c0 = {1, 0.5f, 0, 1}, c1 = {0, 0, 1, 0.25f};
  auto gradient = generate("CILinearGradient", {{"inputPoint0", CIVector{10, 20}},
                                                {"inputPoint1", CIVector{50, 50}},
                                                {"inputColor0", CIColor(1, 0.5, 0, 1)},
                                                {"inputColor1", CIColor(0, 0, 1, 0.25)}});
  ASSERT_TRUE(gradient);
  EXPECT_TRUE(CGRectIsInfinite(gradient->extent()));
  test::Rendered out(gradient, CGRectMake(-20, -10, 100, 80));
  auto t = [](double x, double y) {
    double px = x + 0.5 - 10, py = y + 0.5 - 20;
    return std::clamp((px * 40 + py * 30) / 2500, 0.0, 1.0);
  };
  for (auto [x, y] : {std::pair{30.0, 35.0}, {47.0, 12.0}}) {
    expectPixel(out.at(x, y), mixed(c0, c1, t(x, y)), "ramp");
  }
  // Beyond the ends the colours continue flat.
  expectPixel(out.at(-20, -10), mixed(c0, c1, 0), "before");
  expectPixel(out.at(79, 69), mixed(c0, c1, 1), "after");
  // Perpendicular to the axis nothing changes.
  expectPixel(out.at(30 - 3, 35 + 4), out.at(30, 35), "perpendicular");
}

TEST(LinearGradient, CoincidentPointsGiveTheFirstColour) {
  auto point = generate("CILinearGradient", {{"inputPoint0", CIVector{5, 5}}, {"inputPoint1", CIVector{5, 5}}});
  expectPixel(test::Rendered(point, CGRectMake(0, 0, 10, 10)).at(9, 9), {1, 1, 1, 1}, "coincident");
}

TEST(RadialGradient, RampBetweenTheRadii) {
  Pixel c0 = {0, 1, 0, 0.5f}, c1 = {1, 0, 1, 1};
  CIFilterParameters parameters = {{"inputCenter", CIVector{20, 10}},
                                   {"inputRadius0", 4.0},
                                   {"inputRadius1", 24.0},
                                   {"inputColor0", CIColor(0, 1, 0, 0.5)},
                                   {"inputColor1", CIColor(1, 0, 1, 1)}};
  auto gradient = generate("CIRadialGradient", parameters);
  ASSERT_TRUE(gradient);
  EXPECT_TRUE(CGRectIsInfinite(gradient->extent()));
  test::Rendered out(gradient, CGRectMake(-20, -30, 80, 80));
  auto t = [](double x, double y, double r0, double r1) {
    double rho = std::hypot(x + 0.5 - 20, y + 0.5 - 10);
    return std::clamp((rho - r0) / (r1 - r0), 0.0, 1.0);
  };
  for (auto [x, y] : {std::pair{20.0, 10.0}, {25.0, 13.0}, {59.0, 49.0}}) {
    expectPixel(out.at(x, y), mixed(c0, c1, t(x, y, 4, 24)), "ramp");
  }

  // r0 > r1 runs the ramp inwards.
  parameters["inputRadius0"] = 24.0;
  parameters["inputRadius1"] = 4.0;
  test::Rendered reversed(generate("CIRadialGradient", parameters), CGRectMake(-20, -30, 80, 80));
  for (auto [x, y] : {std::pair{20.0, 10.0}, {25.0, 13.0}, {59.0, 49.0}})
    expectPixel(reversed.at(x, y), mixed(c0, c1, t(x, y, 24, 4)), "reversed");

  // Equal radii: a hard edge, colour 0 strictly inside.
  parameters["inputRadius0"] = 6.0;
  parameters["inputRadius1"] = 6.0;
  test::Rendered step(generate("CIRadialGradient", parameters), CGRectMake(0, 0, 40, 20));
  expectPixel(step.at(24, 10), mixed(c0, c1, 0), "inside");   // ρ ≈ 4.5
  expectPixel(step.at(26, 10), mixed(c0, c1, 1), "outside");  // ρ ≈ 6.5
}

// From the (default) centre (150, 150), white to black.
TEST(RadialGradient, ZeroInnerRadiusRampsFromTheCentre) {
  auto fromCentre = generate("CIRadialGradient", {{"inputRadius0", 0.0}, {"inputRadius1", 10.0}});
  double rho = std::hypot(3.5, 0.5);
  expectPixel(test::Rendered(fromCentre, CGRectMake(140, 140, 20, 20)).at(153, 150),
              mixed({1, 1, 1, 1}, {0, 0, 0, 1}, rho / 10), "zero radius");
}

// Colours enter the working space before the premultiplied mix.
TEST(Gradients, ColoursAreConvertedToTheWorkingSpace) {
  auto gradient = generate("CILinearGradient", {{"inputPoint0", CIVector{0, 0}},
                                                {"inputPoint1", CIVector{100, 0}},
                                                {"inputColor0", CIColor(0.5, 0.5, 0.5, 1)},
                                                {"inputColor1", CIColor(0.5, 0.5, 0.5, 1)}});
  double decoded = std::pow((0.5 + 0.055) / 1.055, 2.4);
  EXPECT_NEAR(test::Rendered(gradient, CGRectMake(0, 0, 100, 1), CIContextOptions{}).at(40, 0)[0], decoded, 1e-4);
}

}  // namespace
}  // namespace brenvia
