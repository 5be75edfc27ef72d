#include "platform/coreimage/ops/compositing_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace brenvia {
namespace {

using test::Pixel;

// Premultiplied pixels with alpha 0, partial and 1, and colour values outside [0, 1].
Pixel sourceAt(size_t i, size_t j) {
  static constexpr std::array<Pixel, 6> kPixels = {
      Pixel{0, 0, 0, 0},    Pixel{0.1f, 0.2f, 0.05f, 0.3f}, Pixel{0.6f, 0.1f, 0.7f, 0.75f},
      Pixel{1, 0.5f, 0, 1}, Pixel{1.4f, -0.2f, 0.3f, 1},    Pixel{0.2f, 0.2f, 0.2f, 0.2f}};
  return kPixels[(i + 2 * j) % kPixels.size()];
}

Pixel backdropAt(size_t i, size_t j) {
  static constexpr std::array<Pixel, 5> kPixels = {Pixel{0.3f, 0.6f, 0.9f, 1}, Pixel{0, 0, 0, 0},
                                                   Pixel{0.25f, 0.1f, 0.4f, 0.5f}, Pixel{2, 0.5f, -0.5f, 1},
                                                   Pixel{0.05f, 0.05f, 0.05f, 0.1f}};
  return kPixels[(3 * i + j) % kPixels.size()];
}

CIImageRef composite(std::string_view name, const CIImageRef& source, const CIImageRef& backdrop) {
  return source->imageByApplyingFilter(name, {{"inputBackgroundImage", backdrop}});
}

// Renders the operation over varied 11 x 3 inputs and checks every pixel against `formula`.
template <class F>
void expectPerPixel(std::string_view name, F formula) {
  SCOPED_TRACE(name);
  auto source = test::floatImage(11, 3, sourceAt), backdrop = test::floatImage(11, 3, backdropAt);
  test::expectEachPixel(
      composite(name, source, backdrop), 11, 3,
      [&](size_t i, size_t j, size_t c) { return formula(sourceAt(i, j), backdropAt(i, j), c); }, 1e-6);
}

TEST(PorterDuff, Formulas) {
  expectPerPixel("CISourceOverCompositing",
                 [](const Pixel& s, const Pixel& b, size_t c) { return double(s[c]) + double(b[c]) * (1.0 - s[3]); });
  expectPerPixel("CISourceAtopCompositing", [](const Pixel& s, const Pixel& b, size_t c) {
    return c == 3 ? double(b[3]) : double(s[c]) * b[3] + double(b[c]) * (1.0 - s[3]);
  });
  expectPerPixel("CIMaximumCompositing",
                 [](const Pixel& s, const Pixel& b, size_t c) { return double(std::max(s[c], b[c])); });
}

TEST(PorterDuff, ExtentsAndOutsidePixels) {
  auto source = test::solid({0.2f, 0.4f, 0.6f, 0.8f}, CGRectMake(0, 0, 4, 4));
  auto backdrop = test::solid({0.5f, 0.5f, 0.5f, 1}, CGRectMake(2, 1, 5, 5));
  CGRect all = CGRectMake(0, 0, 7, 6);

  // The extents themselves are checked with the blend modes'.
  test::Rendered o(composite("CISourceOverCompositing", source, backdrop), all);
  EXPECT_FLOAT_EQ(o.at(0, 0)[0], 0.2f);  // source only
  EXPECT_FLOAT_EQ(o.at(6, 5)[0], 0.5f);  // backdrop only
  EXPECT_FLOAT_EQ(o.at(0, 5)[3], 0.0f);  // neither

  EXPECT_FLOAT_EQ(test::Rendered(composite("CISourceAtopCompositing", source, backdrop), all).at(0, 0)[3], 0.0f);

  // Compositing over an infinite backdrop stays infinite.
  auto everywhere = CIImage::imageWithColor(CIColor(0, 0, 0, 1));
  EXPECT_TRUE(CGRectIsInfinite(composite("CISourceOverCompositing", source, everywhere)->extent()));
  EXPECT_TRUE(
      CGRectEqualToRect(composite("CISourceAtopCompositing", everywhere, backdrop)->extent(), backdrop->extent()));
  // The graph helper is source-over.
  auto helper = source->imageByCompositingOverImage(backdrop);
  EXPECT_TRUE(CGRectEqualToRect(helper->extent(), all));
  EXPECT_EQ(test::Rendered(helper, all).at(3, 2), o.at(3, 2));
}

}  // namespace
}  // namespace brenvia
