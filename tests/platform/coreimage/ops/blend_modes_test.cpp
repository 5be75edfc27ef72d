#include "platform/coreimage/ops/compositing_test_support.h"

#include "operators/library_operators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

namespace brenvia {
namespace {

using test::Pixel;
using Rgb = std::array<double, 3>;

// The blend functions B(Cb, Cs) written out directly from their definitions, in double.
double softLightD(double x) { return x <= 0.25 ? ((16 * x - 12) * x + 4) * x : std::sqrt(x); }

const std::map<std::string, std::function<double(double, double)>>& separable() {
  static const std::map<std::string, std::function<double(double, double)>> modes = {
      {"CIMultiplyBlendMode", [](double b, double s) { return b * s; }},
      {"CIScreenBlendMode", [](double b, double s) { return b + s - b * s; }},
      {"CIOverlayBlendMode", [](double b, double s) { return b <= 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
      {"CIDarkenBlendMode", [](double b, double s) { return std::min(b, s); }},
      {"CILightenBlendMode", [](double b, double s) { return std::max(b, s); }},
      {"CIColorDodgeBlendMode",
       [](double b, double s) { return b == 0   ? 0
                                       : s >= 1 ? 1
                                                : std::min(1.0, b / (1 - s)); }},
      {"CIColorBurnBlendMode",
       [](double b, double s) { return b == 1   ? 1
                                       : s <= 0 ? 0
                                                : 1 - std::min(1.0, (1 - b) / s); }},
      {"CISoftLightBlendMode",
       [](double b, double s) {
         return s <= 0.5 ? b - (1 - 2 * s) * b * (1 - b) : b + (2 * s - 1) * (softLightD(b) - b);
       }},
      {"CIHardLightBlendMode", [](double b, double s) { return s <= 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); }},
      {"CIDifferenceBlendMode", [](double b, double s) { return std::abs(b - s); }},
      {"CIExclusionBlendMode", [](double b, double s) { return b + s - 2 * b * s; }},
      {"CIPinLightBlendMode", [](double b, double s) { return s > 0.5 ? std::max(b, 2 * s - 1) : std::min(b, 2 * s); }},
      {"CILinearBurnBlendMode", [](double b, double s) { return std::max(0.0, b + s - 1); }},
      {"CILinearDodgeBlendMode", [](double b, double s) { return std::min(1.0, b + s); }},
      {"CISubtractBlendMode", [](double b, double s) { return std::max(0.0, b - s); }},
      {"CIDivideBlendMode", [](double b, double s) { return s == 0 ? (b == 0 ? 0 : 1) : std::min(1.0, b / s); }},
      {"BVVividLightBlendMode",
       [](double b, double s) {
         if (s <= 0.5) return s <= 0 ? 0 : std::max(0.0, 1 - (1 - b) / (2 * s));
         return s >= 1 ? 1 : std::min(1.0, b / (2 * (1 - s)));
       }},
      {"BVLinearLightBlendMode", [](double b, double s) { return std::clamp(b + 2 * s - 1, 0.0, 1.0); }},
  };
  return modes;
}

double lum(const Rgb& c) { return 0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2]; }

// A grey colour outside [0, 1] has nothing to scale (the formula would divide 0 by 0): it stays.
Rgb clipColor(Rgb c) {
  double l = lum(c), n = std::min({c[0], c[1], c[2]}), x = std::max({c[0], c[1], c[2]});
  if (n < 0 && l > n)
    for (double& v : c) v = l + (v - l) * l / (l - n);
  if (x > 1 && x > l)
    for (double& v : c) v = l + (v - l) * (1 - l) / (x - l);
  return c;
}

Rgb setLum(const Rgb& c, double l) {
  double d = l - lum(c);
  return clipColor({c[0] + d, c[1] + d, c[2] + d});
}

double sat(const Rgb& c) { return std::max({c[0], c[1], c[2]}) - std::min({c[0], c[1], c[2]}); }

// Sets max to s, mid in proportion and min to 0; a grey colour becomes black.
Rgb setSat(Rgb c, double s) {
  std::array<size_t, 3> o{0, 1, 2};
  std::sort(o.begin(), o.end(), [&](size_t i, size_t j) { return c[i] < c[j]; });
  const double lo = c[o[0]], range = c[o[2]] - lo;
  c[o[1]] = range > 0 ? (c[o[1]] - lo) * s / range : 0;
  c[o[2]] = range > 0 ? s : 0;
  c[o[0]] = 0;
  return c;
}

const std::map<std::string, std::function<Rgb(const Rgb&, const Rgb&)>>& nonSeparable() {
  static const std::map<std::string, std::function<Rgb(const Rgb&, const Rgb&)>> modes = {
      {"CIHueBlendMode", [](const Rgb& b, const Rgb& s) { return setLum(setSat(s, sat(b)), lum(b)); }},
      {"CISaturationBlendMode", [](const Rgb& b, const Rgb& s) { return setLum(setSat(b, sat(s)), lum(b)); }},
      {"CIColorBlendMode", [](const Rgb& b, const Rgb& s) { return setLum(s, lum(b)); }},
      {"CILuminosityBlendMode", [](const Rgb& b, const Rgb& s) { return setLum(b, lum(s)); }},
  };
  return modes;
}

std::vector<std::string> allModes() {
  BVRegisterLibraryOperators();
  std::vector<std::string> names;
  for (const auto& [name, fn] : separable()) names.push_back(name);
  for (const auto& [name, fn] : nonSeparable()) names.push_back(name);
  return names;
}

// The blend equation on premultiplied pixels, in double.
Pixel expected(const std::string& mode, const Pixel& s, const Pixel& b) {
  double as = s[3], ab = b[3];
  Rgb cs, cb;
  for (size_t c = 0; c < 3; ++c) {
    cs[c] = as > 0 ? s[c] / as : 0;
    cb[c] = ab > 0 ? b[c] / ab : 0;
  }
  Rgb blended;
  if (auto it = separable().find(mode); it != separable().end()) {
    for (size_t c = 0; c < 3; ++c) blended[c] = it->second(cb[c], cs[c]);
  } else {
    blended = nonSeparable().at(mode)(cb, cs);
  }
  Pixel out;
  for (size_t c = 0; c < 3; ++c) out[c] = float((1 - ab) * s[c] + (1 - as) * b[c] + as * ab * blended[c]);
  out[3] = float(as + ab - as * ab);
  return out;
}

// Straight colours and alphas chosen to cover the branches of every mode, out-of-range values
// included, while keeping clear of the branch boundaries where float and double could disagree.
constexpr std::array<float, 12> kLevels = {0, 0.07f, 0.2f, 0.33f, 0.41f, 0.58f, 0.66f, 0.8f, 0.93f, 1, 1.25f, -0.15f};
constexpr std::array<float, 4> kSourceAlphas = {0, 0.3f, 0.75f, 1};
constexpr std::array<float, 4> kBackdropAlphas = {1, 0.6f, 0, 0.45f};

// 13 x 5 pixels: rows of 13 leave a remainder after groups of four.
constexpr size_t kW = 13, kH = 5;

Pixel premultiplied(float r, float g, float b, float a) { return {r * a, g * a, b * a, a}; }

Pixel sourceAt(size_t i, size_t j) {
  size_t k = j * kW + i;
  return premultiplied(kLevels[k % 12], kLevels[(k + 3) % 12], kLevels[(k + 7) % 12], kSourceAlphas[k % 4]);
}

Pixel backdropAt(size_t i, size_t j) {
  size_t k = j * kW + i;
  return premultiplied(kLevels[(5 * k + 1) % 12], kLevels[(7 * k + 2) % 12], kLevels[(11 * k + 4) % 12],
                       kBackdropAlphas[(k / 4) % 4]);
}

CIImageRef blendImages(const std::string& mode, const CIImageRef& source, const CIImageRef& backdrop) {
  return source->imageByApplyingFilter(mode, {{"inputBackgroundImage", backdrop}});
}

// A hand-computed value (soft light's second branch) and the exact comparisons of dodge, burn and
// divide, which hold on translucent pixels too.
TEST(BlendModes, ReferenceValuesAndGuardedCases) {
  CGRect r = CGRectMake(0, 0, 1, 1);
  auto blendAt = [&](const char* mode, Pixel s, Pixel b) {
    return test::Rendered(blendImages(mode, test::solid(s, r), test::solid(b, r)), r).at(0, 0);
  };
  EXPECT_FLOAT_EQ(blendAt("CISoftLightBlendMode", {1, 1, 1, 1}, {0.25f, 0.25f, 0.25f, 1})[1], 0.5f);
  // Cb = 1 burns to 1 even by a black source.
  EXPECT_NEAR(blendAt("CIColorBurnBlendMode", {0, 0, 0, 0.7f}, {0.3f, 0.3f, 0.3f, 0.3f})[0], 0.3, 1e-6);
  // Cb = 0 dodges to 0 even by a white source.
  EXPECT_NEAR(blendAt("CIColorDodgeBlendMode", {0.6f, 0.6f, 0.6f, 0.6f}, {0, 0, 0, 0.5f})[0], 0.6 * 0.5, 1e-6);
  // Dividing by a zero source gives 1, or 0 over a zero backdrop.
  Pixel divided = blendAt("CIDivideBlendMode", {0, 0, 0, 0.4f}, {0.2f, 0, 0.2f, 0.5f});
  EXPECT_NEAR(divided[0], 0.6 * 0.2 + 0.4 * 0.5, 1e-6);
  EXPECT_NEAR(divided[1], 0.0, 1e-6);
}

TEST(BlendModes, EveryModeFollowsTheBlendEquation) {
  auto source = test::floatImage(kW, kH, sourceAt), backdrop = test::floatImage(kW, kH, backdropAt);
  for (const std::string& mode : allModes()) {
    SCOPED_TRACE(mode);
    test::expectEachPixel(
        blendImages(mode, source, backdrop), kW, kH,
        [&](size_t i, size_t j, size_t c) { return expected(mode, sourceAt(i, j), backdropAt(i, j))[c]; },
        nonSeparable().count(mode) ? 1e-4 : 2e-5, true);
  }
}

TEST(BlendModes, TransparentSideShowsTheOtherUnchanged) {
  CGRect r = CGRectMake(0, 0, kW, kH);
  auto varied = test::floatImage(kW, kH, backdropAt), clear = test::solid({0, 0, 0, 0}, r);
  for (const std::string& mode : allModes()) {
    SCOPED_TRACE(mode);
    auto want = [](size_t i, size_t j, size_t c) { return backdropAt(i, j)[c]; };
    test::expectEachPixel(blendImages(mode, varied, clear), kW, kH, want, 0);
    test::expectEachPixel(blendImages(mode, clear, varied), kW, kH, want, 0);
  }
}

// Source atop covers only the backdrop; every other mode and compositing operation the union.
TEST(BlendModes, NeedBothInputsAndCoverTheUnion) {
  auto a = test::solid({0.2f, 0.4f, 0.6f, 1}, CGRectMake(0, 0, 4, 4));
  auto b = test::solid({0.5f, 0.5f, 0.5f, 0.5f}, CGRectMake(2, -3, 6, 5));
  auto names = allModes();
  names.insert(names.end(), {"CISourceOverCompositing", "CIMaximumCompositing", "CISourceAtopCompositing"});
  for (const std::string& mode : names) {
    SCOPED_TRACE(mode);
    auto filter = CIFilter::filterWithName(mode);
    ASSERT_TRUE(filter);
    EXPECT_FALSE(filter->outputImage());
    filter->setValue(a, "inputImage");
    EXPECT_FALSE(filter->outputImage());
    filter->setValue(b, "inputBackgroundImage");
    auto out = filter->outputImage();
    ASSERT_TRUE(out);
    CGRect covered = mode == "CISourceAtopCompositing" ? b->extent() : CGRectMake(0, -3, 8, 7);
    EXPECT_TRUE(CGRectEqualToRect(out->extent(), covered));
  }
}

}  // namespace
}  // namespace brenvia
