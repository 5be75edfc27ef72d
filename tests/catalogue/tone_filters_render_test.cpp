// Tone and colour filters rendered from recipes on the example photo, checked at chosen pixels or
// by statistics against what each filter must do to a picture.
#include "filter/filter.h"
#include "image/image.h"
#include "platform/coreimage/ci_image.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

namespace brenvia {
namespace {

using RGB = std::array<int, 3>;

// The example photo, decoded so that its long side is `longSide` (2560 x 1600 shrinks by powers of 2).
std::shared_ptr<BVImage> photo(size_t longSide) {
  return BVImage::initWithCIImage(
      CIImage::imageWithContentsOfFile(std::string(BRENVIA_EXAMPLES) + "/photos/ladybird.jpg", longSide));
}

CGImageRef render(const Value& recipe, const std::shared_ptr<BVImage>& image, bool bitmapRoad = false) {
  BVImageProcessorOptions options;
  options.renderWithCoreGraphics = bitmapRoad;
  auto out = BVImageProcessor::initWithFilters(BVFilter::filtersWithArray(recipe), options)->process(image);
  EXPECT_TRUE(out);
  return out ? out->CGImage() : nullptr;
}

RGB rgb(const CGImageRef& image, size_t x, size_t y) { return test::rgbAt(*image, x, y); }

void forEachPixel(const CGImageRef& image, const std::function<void(size_t, size_t)>& fn) {
  for (size_t y = 0; y < image->height(); ++y)
    for (size_t x = 0; x < image->width(); ++x) fn(x, y);
}

// A 7 x 5 grid of pixels spread over the picture.
std::vector<std::pair<size_t, size_t>> chosenPixels(const CGImageRef& image) {
  std::vector<std::pair<size_t, size_t>> points;
  for (size_t j = 1; j <= 5; ++j)
    for (size_t i = 1; i <= 7; ++i) points.push_back({image->width() * i / 8, image->height() * j / 6});
  return points;
}

// Largest channel difference from what `expected` makes of each chosen input pixel.
int worstAtChosenPixels(const CGImageRef& in, const CGImageRef& out, const std::function<RGB(RGB)>& expected) {
  int worst = 0;
  for (auto [x, y] : chosenPixels(in)) {
    RGB want = expected(rgb(in, x, y)), got = rgb(out, x, y);
    for (size_t c = 0; c < 3; ++c) worst = std::max(worst, std::abs(want[c] - got[c]));
  }
  return worst;
}

int clamped(double v) { return int(std::lround(std::clamp(v, 0.0, 255.0))); }

std::array<double, 3> channelMeans(const CGImageRef& image) {
  std::array<double, 3> sum{};
  forEachPixel(image, [&](size_t x, size_t y) {
    RGB p = rgb(image, x, y);
    for (size_t c = 0; c < 3; ++c) sum[c] += p[c];
  });
  for (double& s : sum) s /= double(image->width() * image->height());
  return sum;
}

// Mean absolute difference between horizontal neighbours of the green channel: local contrast.
double localContrast(const CGImageRef& image) {
  double sum = 0;
  forEachPixel(image, [&](size_t x, size_t y) {
    if (x > 0) sum += std::abs(rgb(image, x, y)[1] - rgb(image, x - 1, y)[1]);
  });
  return sum / double((image->width() - 1) * image->height());
}

// Mean channel difference between `small` and `large` shrunk to half by averaging 2 x 2 blocks.
double meanDifferenceFromHalved(const CGImageRef& large, const CGImageRef& small) {
  double sum = 0;
  forEachPixel(small, [&](size_t x, size_t y) {
    RGB a = rgb(large, 2 * x, 2 * y), b = rgb(large, 2 * x + 1, 2 * y), c = rgb(large, 2 * x, 2 * y + 1),
        d = rgb(large, 2 * x + 1, 2 * y + 1), s = rgb(small, x, y);
    for (size_t k = 0; k < 3; ++k) sum += std::abs((a[k] + b[k] + c[k] + d[k]) / 4.0 - s[k]);
  });
  return sum / double(small->width() * small->height() * 3);
}

class ToneFiltersOnPhoto : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    small_ = photo(320);
    large_ = photo(640);
    plainSmall_ = render(Value::array(), small_);
    plainLarge_ = render(Value::array(), large_);
  }
  static inline std::shared_ptr<BVImage> small_, large_;
  static inline CGImageRef plainSmall_, plainLarge_;
};

// Per-pixel formulas at chosen pixels: a half-transparent red layer moves every pixel halfway to
// red; levels do not clamp between stretching and squeezing, so levels below the input black go
// below the output black.
TEST_F(ToneFiltersOnPhoto, PerPixelFiltersFollowTheirFormulas) {
  ASSERT_EQ(plainSmall_->width(), 320u);
  const struct {
    Value filter;
    std::function<RGB(RGB)> expected;
    bool drawable;
  } cases[] = {
      {{{"type", "color"}, {"colorHex", "#ff0000"}, {"alpha", 0.5}},
       [](RGB p) {
         return RGB{clamped((p[0] + 255) / 2.0), clamped(p[1] / 2.0), clamped(p[2] / 2.0)};
       },
       true},
      {{{"type", "levels"}, {"inputBlack", 50}, {"inputWhite", 200}, {"outputBlack", 20}, {"outputWhite", 235}},
       [](RGB p) {
         for (int& c : p) c = clamped(20 + (c - 50) * 215.0 / 150.0);
         return p;
       },
       false},
  };
  for (const auto& c : cases) {
    const Value recipe = Value::array({c.filter});
    EXPECT_LE(worstAtChosenPixels(plainSmall_, render(recipe, small_), c.expected), 2) << c.filter;
    if (c.drawable) EXPECT_LE(worstAtChosenPixels(plainSmall_, render(recipe, small_, true), c.expected), 2);
  }
}

// Luminance sharpening adds the same amount to the three channels, so the differences between
// channels stay; the picture gains local contrast and keeps its overall tone.
TEST_F(ToneFiltersOnPhoto, SharpenRaisesLocalContrastAndLeavesColourAlone) {
  CGImageRef out = render(Value::array({{{"type", "sharpen"}, {"sharpness", 1.0}}}), small_);
  int colourShift = 0;
  for (auto [x, y] : chosenPixels(out)) {
    RGB in = rgb(plainSmall_, x, y), sharp = rgb(out, x, y);
    if (*std::max_element(sharp.begin(), sharp.end()) >= 255 || *std::min_element(sharp.begin(), sharp.end()) <= 0)
      continue;
    colourShift = std::max({colourShift, std::abs((sharp[0] - sharp[1]) - (in[0] - in[1])),
                            std::abs((sharp[2] - sharp[1]) - (in[2] - in[1]))});
  }
  EXPECT_LE(colourShift, 2);
  EXPECT_GT(localContrast(out), 1.1 * localContrast(plainSmall_));
  for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(channelMeans(out)[c], channelMeans(plainSmall_)[c], 1.5);
}

// The radius grows with the picture: the same recipe on the half-size photo gives what the
// full-size result gives when halved, and clearly better than half or twice that radius would.
TEST_F(ToneFiltersOnPhoto, UnsharpMaskActsAlikeAtTwoSizes) {
  auto unsharp = [](double radius) {
    return Value::array({{{"type", "unsharp"}, {"radius", radius}, {"intensity", 1.0}}});
  };
  CGImageRef large = render(unsharp(6), large_);
  EXPECT_GT(localContrast(large), 1.2 * localContrast(plainLarge_));
  for (size_t c = 0; c < 3; ++c) EXPECT_NEAR(channelMeans(large)[c], channelMeans(plainLarge_)[c], 1.5);
  const double same = meanDifferenceFromHalved(large, render(unsharp(6), small_));
  EXPECT_LT(same, 1.5);
  EXPECT_GT(meanDifferenceFromHalved(large, render(unsharp(3), small_)), 2 * same);
  EXPECT_GT(meanDifferenceFromHalved(large, render(unsharp(12), small_)), 2 * same);
}

// The darkening at a point depends on its place relative to the picture, not on the picture's size.
TEST_F(ToneFiltersOnPhoto, VignetteDarkensTheOutsideAlikeAtTwoSizes) {
  const Value recipe = Value::array({{{"type", "vignette"}, {"intensity", 0.9}, {"focus", 0.3}}});
  const std::vector<std::pair<double, double>> places = {{0.5, 0.5}, {0.25, 0.5}, {0.2, 0.5}, {0.02, 0.03}};
  std::vector<double> smallRatios;
  for (auto [image, plain] : {std::pair{small_, plainSmall_}, std::pair{large_, plainLarge_}}) {
    CGImageRef out = render(recipe, image);
    std::vector<double> ratios;
    for (auto [u, v] : places) {
      const size_t x = size_t(u * double(out->width())), y = size_t(v * double(out->height()));
      RGB in = rgb(plain, x, y), dark = rgb(out, x, y);
      ratios.push_back(double(dark[0] + dark[1] + dark[2] + 1) / double(in[0] + in[1] + in[2] + 1));
    }
    EXPECT_NEAR(ratios[0], 1.0, 0.02);
    EXPECT_LT(ratios[1], 0.95);
    EXPECT_LT(ratios[2], ratios[1] - 0.1);
    EXPECT_LT(ratios[3], 0.35);
    for (size_t i = 0; i < smallRatios.size(); ++i) EXPECT_NEAR(smallRatios[i], ratios[i], 0.05) << i;
    smallRatios = ratios;
  }
}

}  // namespace
}  // namespace brenvia
