#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>

namespace brenvia {
namespace {

using Pixel = std::array<double, 4>;  // premultiplied RGBA

// Transparent, partial and opaque pixels, with values outside [0, 1].
const std::vector<Pixel> kSamples = {{0, 0, 0, 0},           {0.1, 0.05, 0.02, 0.25}, {0.9, 0.4, 0.1, 1},
                                     {1.3, -0.2, 0.5, 1},    {0.3, 0.3, 0.3, 0.6},    {0.05, 0.6, 0.45, 0.75},
                                     {0.72, 0.18, 0.8, 0.9}, {0.02, 0.01, 0.015, 1}};

// One row of premultiplied float pixels; untagged, so no colour conversion touches them.
CIImageRef rowImage(const std::vector<Pixel>& pixels) {
  auto bitmap = CGImage::allocate(pixels.size(), 1, CGPixelFormat::RGBAFloatPremultiplied, nullptr);
  auto* p = reinterpret_cast<float*>(bitmap->mutableRow(0));
  for (size_t i = 0; i < pixels.size() * 4; ++i) p[i] = float(pixels[i / 4][i % 4]);
  return CIImage::imageWithCGImage(bitmap);
}

std::vector<Pixel> renderRow(const CIImageRef& image, size_t width,
                             const CIContextOptions& options = test::unmanaged()) {
  auto v = test::renderFloat(image, CGRectMake(0, 0, double(width), 1), options);
  std::vector<Pixel> out(width);
  for (size_t i = 0; i < width * 4; ++i) out[i / 4][i % 4] = v[i];
  return out;
}

Pixel unpremultiplied(const Pixel& p) {
  return p[3] == 0 ? Pixel{0, 0, 0, 0} : Pixel{p[0] / p[3], p[1] / p[3], p[2] / p[3], p[3]};
}
Pixel premultiplied(const Pixel& c) { return {c[0] * c[3], c[1] * c[3], c[2] * c[3], c[3]}; }
double luma(const Pixel& c) { return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2]; }

void expectPixels(const std::vector<Pixel>& got, const std::vector<Pixel>& want, double tolerance,
                  std::string_view what) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i)
    for (size_t c = 0; c < 4; ++c)
      EXPECT_NEAR(got[i][c], want[i][c], tolerance) << what << " pixel " << i << " channel " << c;
}

// Applies the operation to every sample and compares with the formula evaluated in double.
void expectFormula(std::string_view name, const CIFilterParameters& params,
                   const std::function<Pixel(const Pixel&)>& formula, double tolerance = 2e-6,
                   const std::vector<Pixel>& samples = kSamples) {
  auto out = rowImage(samples)->imageByApplyingFilter(name, params);
  ASSERT_TRUE(out) << name;
  std::vector<Pixel> want;
  for (const Pixel& p : samples) want.push_back(formula(p));
  expectPixels(renderRow(out, samples.size()), want, tolerance, name);
}

// Cube data from f(r, g, b) at the cell coordinates in [0, 1], red index fastest.
using CubeFunction = std::function<std::array<float, 4>(double, double, double)>;
CIData cubeData(int n, const CubeFunction& f) {
  std::vector<float> cells;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        auto v = f(r / double(n - 1), g / double(n - 1), b / double(n - 1));
        cells.insert(cells.end(), v.begin(), v.end());
      }
  auto bytes = std::make_shared<std::vector<uint8_t>>(cells.size() * 4);
  std::memcpy(bytes->data(), cells.data(), bytes->size());
  return bytes;
}
CIData identityCube(int n) {
  return cubeData(n, [](double r, double g, double b) {
    return std::array<float, 4>{float(r), float(g), float(b), 1};
  });
}

TEST(ColorOperations, ExtentAndMissingImage) {
  const std::vector<std::string> operations = {
      "CIColorControls", "CIVibrance", "CIHueAdjust", "CIGammaAdjust", "CIHighlightShadowAdjust",
      "CITemperatureAndTint", "CIVignetteEffect", "CIColorClamp", "CIColorCube", "CIColorCubeWithColorSpace",
      "CIColorInvert", "CIFalseColor", "CIMinimumComponent", "CIMaximumComponent"};
  auto source = CIImage::imageWithCGImage(test::noiseBitmap(5, 4))
                    ->imageByApplyingTransform(CGAffineTransformMakeTranslation(3, -2));
  for (const auto& name : operations) {
    auto filter = CIFilter::filterWithName(name);
    ASSERT_TRUE(filter) << name;
    EXPECT_FALSE(filter->outputImage()) << name;
    filter->setValue(source, "inputImage");
    if (name.starts_with("CIColorCube")) filter->setValue(identityCube(2), "inputCubeData");
    if (name == "CITemperatureAndTint") filter->setValue(CIVector{5000, 10}, "inputNeutral");
    auto out = filter->outputImage();
    ASSERT_TRUE(out) << name;
    EXPECT_TRUE(CGRectEqualToRect(out->extent(), CGRectMake(3, -2, 5, 4))) << name;
  }
}

TEST(ColorOperations, ColorControlsSaturatesThenBrightensThenContrasts) {
  for (auto [sat, bright, con] : {std::array<double, 3>{0, 0.1, 1}, {1.6, -0.2, 1.4}}) {
    expectFormula("CIColorControls", {{"inputSaturation", sat}, {"inputBrightness", bright}, {"inputContrast", con}},
                  [&](const Pixel& p) {
                    Pixel s = unpremultiplied(p);
                    double l = luma(s);
                    for (size_t c = 0; c < 3; ++c) s[c] = ((l + (s[c] - l) * sat) + bright - 0.5) * con + 0.5;
                    return premultiplied(s);
                  });
  }
}

Pixel vibrance(const Pixel& p, double a) {
  Pixel s = unpremultiplied(p);
  std::array<double, 3> v, e;
  for (size_t c = 0; c < 3; ++c) v[c] = std::clamp(s[c], 0.0001, 0.9999);
  double g = (v[0] + v[1] + v[2]) / 3;
  for (size_t c = 0; c < 3; ++c)
    e[c] = std::max((v[c] - g) / std::max(0.9999 - g, 1e-6), (g - v[c]) / std::max(g - 0.0001, 1e-6));
  double sigma = std::max({e[0], e[1], e[2]});
  double skin = std::clamp(4 * std::min(v[0] - v[1], 2 * v[1] - v[2]) * (1 - e[0]) / g, 0.0, 1.0);
  double poly = 3 * a + (-4.5 * a * a - 1.5 * a) * sigma + (4.5 * a * a * a - 0.5 * a) * sigma * sigma +
                (-4.5 * a * a * a + 4.5 * a * a - a) * sigma * sigma * sigma;
  double boost = poly * (1 - (0.15 + 0.7 * skin));
  for (size_t c = 0; c < 3; ++c) s[c] = std::clamp(v[c] + (v[c] - g) * boost, 0.0, 1.0) + (s[c] - v[c]);
  return premultiplied(s);
}

TEST(ColorOperations, VibranceBoostsWeakColoursAndSparesSaturatedOnes) {
  for (double amount : {-1.0, 0.5})
    expectFormula(
        "CIVibrance", {{"inputAmount", amount}}, [&](const Pixel& p) { return vibrance(p, amount); }, 1e-5);
  // Fully saturated colours and greys, extended range included, are left alone at any amount.
  const std::vector<Pixel> unchanged = {{1, 0, 0, 1}, {0, 0.5, 0, 0.5}, {2, 2, 2, 1}, {0.3, 0.3, 0.3, 0.5}};
  for (double amount : {-1.0, 1.0})
    expectFormula(
        "CIVibrance", {{"inputAmount", amount}}, [](const Pixel& p) { return p; }, 1e-6, unchanged);
}

TEST(ColorOperations, HueAdjustRotatesAboutTheGreyAxis) {
  auto out = renderRow(rowImage({{1, 0, 0, 1}, {0.5, 0, 0, 0.5}})
                           ->imageByApplyingFilter("CIHueAdjust", {{"inputAngle", 2 * std::numbers::pi / 3}}),
                       2);
  expectPixels(out, {{0, 1, 0, 1}, {0, 0.5, 0, 0.5}}, 1e-6, "red to green");
  // Rotations fold into one matrix and add up; grey stays grey.
  auto twice = rowImage(kSamples)
                   ->imageByApplyingFilter("CIHueAdjust", {{"inputAngle", 0.3}})
                   ->imageByApplyingFilter("CIHueAdjust", {{"inputAngle", 0.4}});
  auto once = rowImage(kSamples)->imageByApplyingFilter("CIHueAdjust", {{"inputAngle", 0.7}});
  expectPixels(renderRow(twice, kSamples.size()), renderRow(once, kSamples.size()), 1e-6, "folded");
  expectFormula("CIHueAdjust", {{"inputAngle", 1.1}}, [](const Pixel& p) { return p; }, 1e-6, {{0.3, 0.3, 0.3, 0.6}});
}

TEST(ColorOperations, GammaMirrorsNegativeValues) {
  for (double k : {0.4, 2.2}) {
    expectFormula("CIGammaAdjust", {{"inputPower", k}}, [&](const Pixel& p) {
      Pixel s = unpremultiplied(p);
      for (size_t c = 0; c < 3; ++c) s[c] = std::copysign(std::pow(std::abs(s[c]), k), s[c]);
      return premultiplied(s);
    });
  }
}

// The gain of the highlight and shadow adjustment for a base luma.
double toneGain(double base, double shadow, double highlight) {
  double b = std::clamp(base, 0.0, 1.0), sa = std::abs(shadow), u = 1 - b;
  double sh = std::clamp(std::pow(b, 1 / (1 + sa)) - 0.76 * std::pow(b, 2 / (1 + sa)) - b, 0.0, 1.0);
  double hi =
      std::clamp(1 - (std::pow(u, 1 / (2 - highlight)) - 0.8 * std::pow(u, 2 / (2 - highlight))) - b, -1.0, 0.0);
  return 1 + ((shadow > 0 ? sh : shadow < 0 ? -sh : 0) + hi) / std::max(base, 1e-4);
}

TEST(ColorOperations, HighlightShadowCurvesActOnTheLuma) {
  for (auto [shadow, highlight] : {std::pair{-0.6, 1.0}, {0.5, 0.3}}) {
    expectFormula(
        "CIHighlightShadowAdjust", {{"inputShadowAmount", shadow}, {"inputHighlightAmount", highlight}},
        [&](const Pixel& p) {
          double g = toneGain(luma(unpremultiplied(p)), shadow, highlight);
          return Pixel{p[0] * g, p[1] * g, p[2] * g, p[3]};
        },
        1e-5);
  }
  // Neutral amounts leave every value alone, extended range included.
  expectFormula("CIHighlightShadowAdjust", {}, [](const Pixel& p) { return p; }, 1e-7,
                {{2.5, 1.5, 3, 1}, {0.00005, 0, 0, 1}});
}

TEST(ColorOperations, HighlightShadowWithRadiusUsesTheBlurredLuma) {
  if (!CIFilter::filterWithName("CIGaussianBlur")) GTEST_SKIP() << "CIGaussianBlur is not available";
  // Left half dark, right half light: far from the edge (and at the clamped borders) the blurred
  // base equals the pixel's own luma; next to the edge it mixes both sides.
  auto image = CIImage::imageWithCGImage(test::makeBitmap(80, 8, [](size_t x, size_t) {
    uint8_t v = x < 40 ? 40 : 220;
    return std::array<uint8_t, 4>{v, v, v, 255};
  }));
  CIFilterParameters params = {{"inputShadowAmount", 1.0}, {"inputHighlightAmount", 0.2}};
  auto plain = test::renderFloat(image->imageByApplyingFilter("CIHighlightShadowAdjust", params), image->extent());
  params["inputRadius"] = 3.0;
  auto blurred = image->imageByApplyingFilter("CIHighlightShadowAdjust", params);
  ASSERT_TRUE(blurred);
  EXPECT_TRUE(CGRectEqualToRect(blurred->extent(), image->extent()));
  auto local = test::renderFloat(blurred, image->extent());
  auto green = [](const std::vector<float>& v, size_t x) { return v[(4 * 80 + x) * 4 + 1]; };
  for (size_t x : {0, 5, 25, 55, 79}) EXPECT_NEAR(green(local, x), green(plain, x), 1e-4) << x;
  for (size_t x : {39, 40}) EXPECT_GT(std::abs(green(local, x) - green(plain, x)), 1e-3) << x;
}

TEST(ColorOperations, TemperatureAndTintAdaptsTheWhitePoint) {
  const std::vector<Pixel> greys = {{0.5, 0.5, 0.5, 1}, {0.1, 0.1, 0.1, 0.25}};
  auto adapt = [&](CIVector neutral) {
    return renderRow(rowImage(greys)->imageByApplyingFilter("CITemperatureAndTint", {{"inputNeutral", neutral}}), 2);
  };
  expectFormula(
      "CITemperatureAndTint", {{"inputNeutral", CIVector{4200, 25}}, {"inputTargetNeutral", CIVector{4200, 25}}},
      [](const Pixel& p) { return p; }, 1e-6, greys);
  // A bluish 8000 K neutral brought to 6500 K warms the picture, translucent pixels too, and a
  // greenish one (positive tint) loses green.
  auto warm = adapt({8000, 0}), magenta = adapt({6500, 30});
  EXPECT_LT(warm[0][2], warm[0][0] - 0.02);
  EXPECT_LT(warm[1][2], warm[1][0]);
  EXPECT_NEAR(warm[1][3], 0.25, 1e-7);
  EXPECT_LT(magenta[0][1], std::min(magenta[0][0], magenta[0][2]) - 0.01);

  // Illuminant A (2856 K, on the Planckian locus) lands on the locus at 6500 K.
  const color::Mat3 toXYZ = color::kSRGBToXYZ, fromXYZ = color::invert(toXYZ);
  const double ax = 0.44757, ay = 0.40745;
  const std::array<double, 3> white = {ax / ay * 0.4, 0.4, (1 - ax - ay) / ay * 0.4};
  Pixel source{0, 0, 0, 1};
  for (size_t i = 0; i < 9; ++i) source[i / 3] += fromXYZ[i] * white[i % 3];
  auto out = renderRow(
      rowImage({source})->imageByApplyingFilter("CITemperatureAndTint", {{"inputNeutral", CIVector{2856, 0}}}), 1);
  std::array<double, 3> xyz{};
  for (size_t i = 0; i < 9; ++i) xyz[i / 3] += toXYZ[i] * out[0][i % 3];
  EXPECT_NEAR(xyz[0] / (xyz[0] + xyz[1] + xyz[2]), 0.3135, 5e-4);
  EXPECT_NEAR(xyz[1] / (xyz[0] + xyz[1] + xyz[2]), 0.3236, 5e-4);
}

TEST(ColorOperations, VignetteDarkensOrLightensOutsideTheRadius) {
  // Pixel i of the row lies at distance |i - 4| from the centre (4.5, 0.5).
  const Pixel colour = {0.4, 0.2, 0.6, 0.8};
  for (auto [intensity, falloff] : {std::pair{-0.7, 0.5}, {0.8, 0.0}}) {
    auto out = renderRow(rowImage(std::vector<Pixel>(20, colour))
                             ->imageByApplyingFilter("CIVignetteEffect", {{"inputCenter", CIVector{4.5, 0.5}},
                                                                          {"inputRadius", 3.0},
                                                                          {"inputIntensity", intensity},
                                                                          {"inputFalloff", falloff}}),
                         20);
    std::vector<Pixel> want;
    for (int i = 0; i < 20; ++i) {
      double d = std::abs(i - 4.0), e1 = 3 * (1 + 2 * falloff), t = d < 3 ? 0.0 : 1.0;
      if (e1 > 3) t = std::clamp((d - 3) / (e1 - 3), 0.0, 1.0), t = t * t * (3 - 2 * t);
      Pixel p = colour;
      for (size_t c = 0; c < 3; ++c)
        p[c] = intensity >= 0 ? p[c] * (1 - intensity * t) : p[c] + (p[3] - p[c]) * (-intensity * t);
      want.push_back(p);
    }
    expectPixels(out, want, 1e-6, "vignette");
  }
}

TEST(ColorOperations, ClampInvertMinimumAndMaximum) {
  const CIVector lo{0.1, 0.2, 0, 0.5}, hi{0.8, 0.9, 0.3, 0.9};
  expectFormula("CIColorClamp", {{"inputMinComponents", lo}, {"inputMaxComponents", hi}}, [&](const Pixel& p) {
    Pixel s = unpremultiplied(p);
    for (size_t c = 0; c < 4; ++c) s[c] = std::clamp(s[c], lo.valueAtIndex(c), hi.valueAtIndex(c));
    return premultiplied(s);
  });
  // A minimum alpha of 1 makes even transparent pixels opaque.
  auto opaque = rowImage({{0, 0, 0, 0}, {0.2, 0.1, 0, 0.5}})
                    ->imageByApplyingFilter("CIColorClamp", {{"inputMinComponents", CIVector{0.1, 0, 0, 1}}});
  expectPixels(renderRow(opaque, 2), {{0.1, 0, 0, 1}, {0.4, 0.2, 0, 1}}, 1e-6, "opaque");

  expectFormula("CIColorInvert", {}, [](const Pixel& p) {
    Pixel s = unpremultiplied(p);
    for (size_t c = 0; c < 3; ++c) s[c] = 1 - s[c];
    return premultiplied(s);
  });
  // Inversion runs on linear values by default: sRGB 128 (linear 0.216) becomes linear 0.784, sRGB 229.
  auto grey = CIImage::imageWithCGImage(test::solidBitmap(1, 1, {128, 128, 128, 255}));
  auto inverted =
      CIContext::context()->createCGImage(grey->imageByApplyingFilter("CIColorInvert"), CGRectMake(0, 0, 1, 1));
  EXPECT_NEAR(test::pixelAt(inverted, 0, 0)[0], 229, 1);

  expectFormula("CIMinimumComponent", {}, [](const Pixel& p) {
    double v = std::min({p[0], p[1], p[2]});
    return Pixel{v, v, v, p[3]};
  });
  expectFormula("CIMaximumComponent", {}, [](const Pixel& p) {
    double v = std::max({p[0], p[1], p[2]});
    return Pixel{v, v, v, p[3]};
  });
}

TEST(ColorOperations, FalseColorMixesTheTwoColoursByLuma) {
  const CIColor c0(0.1, 0.2, 0.9, 0.5), c1(1.0, 0.6, 0.0, 1.0);
  expectFormula("CIFalseColor", {{"inputColor0", c0}, {"inputColor1", c1}}, [&](const Pixel& p) {
    Pixel s = unpremultiplied(p);
    double l = std::clamp(luma(s), 0.0, 1.0);
    auto mix = [l](double a, double b) { return a + (b - a) * l; };
    return premultiplied({mix(c0.red(), c1.red()), mix(c0.green(), c1.green()), mix(c0.blue(), c1.blue()),
                          s[3] * mix(c0.alpha(), c1.alpha())});
  });
  // The (default) colours are brought into the working space: linear light by default.
  auto out =
      renderRow(rowImage({{1, 1, 1, 1}, {0, 0, 0, 1}})->imageByApplyingFilter("CIFalseColor"), 2, CIContextOptions{});
  using color::srgbDecode;
  expectPixels(out, {{1, srgbDecode(0.9), srgbDecode(0.8), 1}, {srgbDecode(0.3), 0, 0, 1}}, 1e-5, "defaults");
}

// Trilinear interpolation of the cube function at q (in cells), as a weighted sum of eight corners.
std::array<double, 4> trilinear(int n, const CubeFunction& f, std::array<double, 3> q) {
  std::array<double, 4> sum{};
  for (int corner = 0; corner < 8; ++corner) {
    double w = 1;
    std::array<double, 3> at;
    for (size_t c = 0; c < 3; ++c) {
      int i0 = std::clamp(int(std::floor(q[c])), 0, n - 2), bit = (corner >> c) & 1;
      w *= bit ? q[c] - i0 : 1 - (q[c] - i0);
      at[c] = (i0 + bit) / double(n - 1);
    }
    auto v = f(at[0], at[1], at[2]);
    for (size_t k = 0; k < 4; ++k) sum[k] += w * v[k];
  }
  return sum;
}

TEST(ColorOperations, ColorCubeInterpolatesCellsAndScalesByAlpha) {
  // A curved table with alpha below 1, so every corner weight shows.
  CubeFunction f = [](double r, double g, double b) {
    return std::array<float, 4>{float(r * r * 0.8), float(std::sqrt(g) * (1 - b * 0.5) * 0.8), float(0.2 + r * b * 0.6),
                                0.8f};
  };
  for (bool extrapolate : {false, true}) {
    expectFormula(
        "CIColorCube",
        {{"inputCubeDimension", 5}, {"inputCubeData", cubeData(5, f)}, {"inputExtrapolate", extrapolate}},
        [&](const Pixel& p) {
          Pixel s = unpremultiplied(p);
          std::array<double, 3> q;
          for (size_t c = 0; c < 3; ++c) q[c] = (extrapolate ? s[c] : std::clamp(s[c], 0.0, 1.0)) * 4;
          auto t = trilinear(5, f, q);
          return Pixel{t[0] * s[3], t[1] * s[3], t[2] * s[3], t[3] * s[3]};
        },
        1e-5);
  }
  // Red runs fastest through the cells: (1, 0, 0) reads cell 1, (0, 1, 0) cell 2, (0, 0, 1) cell 4.
  auto index = cubeData(2, [](double r, double g, double b) {
    return std::array<float, 4>{float(r + 2 * g + 4 * b), 0, 0, 1};
  });
  auto out = renderRow(rowImage({{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}})
                           ->imageByApplyingFilter("CIColorCube", {{"inputCubeData", index}}),
                       3);
  expectPixels(out, {{1, 0, 0, 1}, {2, 0, 0, 1}, {4, 0, 0, 1}}, 1e-6, "cell order");
}

TEST(ColorOperations, TetrahedralCubesKeepGreysOnTheGreyAxis) {
  // Tetrahedral weights of the cell corners (in cells, red index fastest) for a colour in cell 0.
  CubeFunction f = [](double r, double g, double b) {
    return std::array<float, 4>{float(r * r), float(g * b), float(0.5 * r + b * b), 1};
  };
  CIContextOptions options = test::unmanaged();
  options.tetrahedralColorCubes = true;
  const std::vector<Pixel> colours = {{0.3, 0.3, 0.3, 1}, {0.9, 0.4, 0.1, 1}, {0.1, 0.7, 0.35, 0.5}, {0.2, 0.2, 0.9, 1}};
  auto out = renderRow(rowImage(colours)->imageByApplyingFilter("CIColorCube", {{"inputCubeData", cubeData(2, f)}}),
                       colours.size(), options);
  for (size_t i = 0; i < colours.size(); ++i) {
    Pixel s = unpremultiplied(colours[i]);
    std::array<std::pair<double, int>, 3> order = {{{s[0], 0}, {s[1], 1}, {s[2], 2}}};
    std::sort(order.begin(), order.end(), std::greater<>());
    // From black along the largest component, then the next, to white.
    std::array<double, 3> corner{0, 0, 0};
    std::array<double, 4> want{};
    double previous = 1;
    auto add = [&](double w) {
      auto v = f(corner[0], corner[1], corner[2]);
      for (size_t k = 0; k < 4; ++k) want[k] += w * v[k];
    };
    for (auto [value, channel] : order) {
      add(previous - value);
      corner[size_t(channel)] = 1;
      previous = value;
    }
    add(previous);
    for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(out[i][c], want[c] * s[3], 1e-6) << "colour " << i << " channel " << c;
  }
}

TEST(ColorOperations, ColorCubeRefusesMismatchedData) {
  for (auto [dimension, data, line] :
       {std::tuple{4, identityCube(3), "[CIColorCube] Cube data of 432 bytes does not match dimension 4."},
        {1, identityCube(2), "[CIColorCube] Cube dimension 1 is outside 2...128."}}) {
    test::LogCapture log;
    EXPECT_FALSE(rowImage(kSamples)->imageByApplyingFilter(
        "CIColorCube", {{"inputCubeDimension", dimension}, {"inputCubeData", data}}));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], line);
  }
}

TEST(ColorOperations, ColorCubeWithColorSpaceLooksUpInThatSpace) {
  std::vector<Pixel> samples = {{0, 0, 0, 0}};
  for (int i = 0; i < 16; ++i)
    samples.push_back(premultiplied({std::fmod(i * 0.137, 1.0), std::fmod(i * 0.291 + 0.05, 1.0), i / 15.0,
                                     i % 4 == 0 ? 1.0 : 0.25 + 0.15 * (i % 4)}));
  auto image = rowImage(samples);
  const CGColorSpaceRef srgb = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  CIContextOptions srgbWorking;
  srgbWorking.workingColorSpace = srgb;
  // An identity cube in sRGB gives the input back whatever the working space.
  auto identity = image->imageByApplyingFilter(
      "CIColorCubeWithColorSpace",
      {{"inputCubeDimension", 32}, {"inputCubeData", identityCube(32)}, {"inputColorSpace", srgb}});
  for (const auto& options : {CIContextOptions{}, srgbWorking, test::unmanaged()})
    expectPixels(renderRow(identity, samples.size(), options), samples, 1e-4, "identity");

  // A squaring table acts on sRGB-encoded values in the linear working space...
  CubeFunction square = [](double r, double g, double b) {
    return std::array<float, 4>{float(r * r), float(g * g), float(b * b), 1};
  };
  const CIFilterParameters cube = {{"inputCubeDimension", 17}, {"inputCubeData", cubeData(17, square)}};
  CIFilterParameters inSRGB = cube;
  inSRGB["inputColorSpace"] = srgb;
  auto squared = image->imageByApplyingFilter("CIColorCubeWithColorSpace", inSRGB);
  std::vector<Pixel> want;
  for (const Pixel& p : samples) {
    Pixel s = unpremultiplied(p);
    auto t = trilinear(17, square,
                       {color::srgbEncode(s[0]) * 16, color::srgbEncode(s[1]) * 16, color::srgbEncode(s[2]) * 16});
    for (size_t c = 0; c < 3; ++c) s[c] = color::srgbDecode(t[c]);
    want.push_back(premultiplied(s));
  }
  expectPixels(renderRow(squared, samples.size(), CIContextOptions{}), want, 1e-4, "linear working");
  // ...and on the stored values, like the plain cube, when either space is missing.
  auto reference = renderRow(image->imageByApplyingFilter("CIColorCube", cube), samples.size(), CIContextOptions{});
  auto noSpace = image->imageByApplyingFilter("CIColorCubeWithColorSpace", cube);
  expectPixels(renderRow(noSpace, samples.size(), CIContextOptions{}), reference, 1e-7, "no space");
  expectPixels(renderRow(squared, samples.size(), test::unmanaged()), reference, 1e-7, "unmanaged");
}

}  // namespace
}  // namespace brenvia
