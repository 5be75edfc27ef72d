#include "blur_and_geometry_support.h"

#include <gtest/gtest.h>

#include <numbers>

namespace brenvia {
namespace {

using test::Pixel;

// Renders a transformed coordinate image and checks the source point each pixel read (its red and
// green) against from(the pixel's centre).
void expectReads(const CIImageRef& out, std::initializer_list<std::pair<int, int>> pixels,
                 const std::function<CGPoint(CGPoint)>& from, const char* what) {
  auto r = test::render(out, CGRectIntegral(out->extent()));
  for (auto [x, y] : pixels) {
    CGPoint want = from({x + 0.5, y + 0.5});
    EXPECT_NEAR(r.at(x, y)[0], want.x, 2e-3) << what << " at " << x << "," << y;
    EXPECT_NEAR(r.at(x, y)[1], want.y, 2e-3) << what << " at " << x << "," << y;
  }
}

std::function<CGPoint(CGPoint)> inverseOf(const CGAffineTransform& t) {
  return [inverse = CGAffineTransformInvert(t)](CGPoint p) { return CGPointApplyAffineTransform(p, inverse); };
}

TEST(CIAffineTransform, SamplesTheInverseMappedPoint) {
  auto image = test::coordinateImage(60, 40);
  CGAffineTransform t =
      CGAffineTransformConcat(CGAffineTransformMakeRotation(0.3), CGAffineTransformMakeScale(1.3, 0.8));
  t.tx = 7.25;
  auto out = image->imageByApplyingFilter("CIAffineTransform", {{"inputTransform", t}});
  // The extent is the exact bounding box, not rounded out.
  EXPECT_TRUE(CGRectEqualToRect(out->extent(), CGRectApplyAffineTransform(image->extent(), t)));
  expectReads(out, {{20, 20}, {35, 30}, {10, 15}}, inverseOf(t), "rotated and scaled");
}

TEST(CIAffineTransform, WholePixelMovesAreExactAndOthersBlendTheBorder) {
  auto image = test::noiseImage(20, 10);
  auto moved = image->imageByApplyingTransform(CGAffineTransformMakeTranslation(3, -2));
  auto a = test::render(image, image->extent()), b = test::render(moved, moved->extent());
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) ASSERT_EQ(a.at(x, y), b.at(x + 3, y - 2));
  // Half a pixel to the right: the first column is half covered.
  auto opaque = test::floatImage(4, 4, [](int, int) { return Pixel{1, 1, 1, 1}; });
  auto half =
      test::render(opaque->imageByApplyingTransform(CGAffineTransformMakeTranslation(0.5, 0)), CGRectMake(0, 0, 5, 4));
  EXPECT_FLOAT_EQ(half.at(0, 1)[3], 0.5f);
  EXPECT_FLOAT_EQ(half.at(2, 1)[3], 1.0f);
  EXPECT_FLOAT_EQ(half.at(4, 1)[3], 0.5f);
  // A singular transform leaves nothing.
  EXPECT_TRUE(CGRectIsEmpty(image->imageByApplyingTransform(CGAffineTransformMakeScale(0, 1))->extent()));
}

// Shrinking by more than 2x averages areas: a one-pixel checkerboard becomes flat grey instead of
// aliasing, and tiling does not change a bit.
TEST(CIAffineTransform, StrongReductionAveragesAreas) {
  auto checker = test::floatImage(96, 96, [](int x, int y) {
    return (x + y) % 2 ? Pixel{1, 1, 1, 1} : Pixel{0, 0, 0, 1};
  });
  for (double s : {0.3, 0.1}) {
    auto small = checker->imageByApplyingTransform(CGAffineTransformMakeScale(s, s));
    auto r = test::render(small, CGRectIntegral(small->extent()));
    const int inner = int(96 * s) - 2;
    for (int y = 1; y < inner; ++y)
      for (int x = 1; x < inner; ++x) ASSERT_NEAR(r.at(x, y)[0], 0.5, 0.07) << "scale " << s << " at " << x << "," << y;
  }
  test::expectTileIndependent(test::noiseImage(300, 200)->imageByApplyingTransform(CGAffineTransformConcat(
                                  CGAffineTransformMakeRotation(0.4), CGAffineTransformMakeScale(0.15, 0.15))),
                              {{2, 16}});
}

TEST(CICrop, KeepsPixelsWhoseCentresAreInside) {
  auto image = test::noiseImage(10, 10);
  auto cropped = image->imageByApplyingFilter("CICrop", {{"inputRectangle", CIVector{1.5, 2, 3, 5}}});
  EXPECT_TRUE(CGRectEqualToRect(cropped->extent(), CGRectMake(1.5, 2, 3, 5)));
  auto a = test::render(image, image->extent());
  test::expectPixels(
      cropped, [&](int x, int y) { return x >= 1 && x <= 3 && y >= 2 && y <= 6 ? a.at(x, y) : Pixel{}; }, 0, "crop");
  // The default rectangle is the whole plane.
  EXPECT_TRUE(CGRectEqualToRect(image->imageByApplyingFilter("CICrop")->extent(), image->extent()));
}

TEST(CIAffineClamp, ExtendsTheEdgePixels) {
  auto image = test::noiseImage(10, 10);
  auto clamped = image->imageByApplyingFilter("CIAffineClamp");
  EXPECT_TRUE(CGRectIsInfinite(clamped->extent()));
  auto source = test::render(image, image->extent());
  // Left of the picture and beyond a corner, the nearest edge pixel is read.
  auto left = test::render(clamped, CGRectMake(-6, 3, 1, 1));
  EXPECT_EQ(left.at(-6, 3), source.at(0, 3));
  auto corner = test::render(clamped, CGRectMake(20, -7, 1, 1));
  EXPECT_EQ(corner.at(20, -7), source.at(9, 0));
  // Another transform clamps first, then transforms.
  auto doubled = image->imageByApplyingFilter("CIAffineClamp", {{"inputTransform", CGAffineTransformMakeScale(2, 2)}});
  auto far = test::render(doubled, CGRectMake(50, -20, 1, 1));
  for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(far.at(50, -20)[c], source.at(9, 0)[c], 1e-6);
  EXPECT_TRUE(CGRectIsEmpty(CIImage::emptyImage()->imageByApplyingFilter("CIAffineClamp")->extent()));
}

TEST(CIStraightenFilter, RotatesAboutTheCentreAndEnlargesToCover) {
  auto image = test::coordinateImage(200, 100);
  const double angle = std::numbers::pi / 4;
  auto out = image->imageByApplyingFilter("CIStraightenFilter", {{"inputAngle", angle}});
  EXPECT_TRUE(CGRectEqualToRect(out->extent(), image->extent()));
  // 0.7071·(1 + 200/100) = 2.1213.
  const double scale = 2.1213203435596424, c = std::cos(angle), s = std::sin(angle);
  auto from = [&](CGPoint p) {
    double dx = p.x - 100, dy = p.y - 50;
    return CGPoint{100 + (c * dx + s * dy) / scale, 50 + (-s * dx + c * dy) / scale};
  };
  expectReads(out, {{110, 50}, {150, 80}, {30, 10}, {190, 8}}, from, "straightened");
  EXPECT_EQ(image->imageByApplyingFilter("CIStraightenFilter", {{"inputAngle", 0.0}}), image);
}

// Heckbert's square-to-quad map of the four points, written out independently of the operation.
CGPoint squareToQuad(const std::array<CGPoint, 4>& p, double u, double v) {  // p: bl, br, tr, tl
  double sx = p[0].x - p[1].x + p[2].x - p[3].x, sy = p[0].y - p[1].y + p[2].y - p[3].y;
  double dx1 = p[1].x - p[2].x, dx2 = p[3].x - p[2].x, dy1 = p[1].y - p[2].y, dy2 = p[3].y - p[2].y;
  double den = dx1 * dy2 - dy1 * dx2;
  double g = (sx * dy2 - sy * dx2) / den, h = (dx1 * sy - dy1 * sx) / den;
  double w = g * u + h * v + 1;
  return {((p[1].x - p[0].x + g * p[1].x) * u + (p[3].x - p[0].x + h * p[3].x) * v + p[0].x) / w,
          ((p[1].y - p[0].y + g * p[1].y) * u + (p[3].y - p[0].y + h * p[3].y) * v + p[0].y) / w};
}

// (u, v) with squareToQuad(u, v) = q, by Newton's method.
CGPoint quadToSquare(const std::array<CGPoint, 4>& p, CGPoint q) {
  CGPoint uv{0.5, 0.5};
  for (int i = 0; i < 50; ++i) {
    CGPoint f = squareToQuad(p, uv.x, uv.y);
    CGPoint fu = squareToQuad(p, uv.x + 1e-7, uv.y), fv = squareToQuad(p, uv.x, uv.y + 1e-7);
    double a = (fu.x - f.x) / 1e-7, b = (fv.x - f.x) / 1e-7, c = (fu.y - f.y) / 1e-7, d = (fv.y - f.y) / 1e-7;
    double ex = q.x - f.x, ey = q.y - f.y, det = a * d - b * c;
    uv.x += (d * ex - b * ey) / det;
    uv.y += (a * ey - c * ex) / det;
  }
  return uv;
}

CIFilterParameters cornerParameters(const std::array<CGPoint, 4>& p) {
  return {{"inputBottomLeft", CIVector{p[0].x, p[0].y}},
          {"inputBottomRight", CIVector{p[1].x, p[1].y}},
          {"inputTopRight", CIVector{p[2].x, p[2].y}},
          {"inputTopLeft", CIVector{p[3].x, p[3].y}}};
}

TEST(CIPerspectiveTransform, MovesTheCornersToThePoints) {
  auto image = test::coordinateImage(100, 80);
  const std::array<CGPoint, 4> quad{{{20, 10}, {170, 30}, {150, 120}, {10, 90}}};
  auto out = image->imageByApplyingFilter("CIPerspectiveTransform", cornerParameters(quad));
  EXPECT_TRUE(CGRectEqualToRect(out->extent(), CGRectMake(10, 10, 160, 110)));
  auto from = [&](CGPoint p) {
    CGPoint uv = quadToSquare(quad, p);
    return CGPoint{uv.x * 100, uv.y * 80};
  };
  expectReads(out, {{60, 50}, {120, 40}, {30, 80}}, from, "perspective");
}

TEST(CIPerspectiveTransform, ShrunkDetailIsAveragedNotAliased) {
  // One-pixel stripes shrunk about threefold: the reference spreads 8 × 8 samples of every source
  // pixel forward into the output pixel they land in, which is the mean of each pixel's footprint.
  const int w = 240, h = 120;
  auto stripes = test::floatImage(w, h, [](int x, int) { return Pixel{double(x % 2), double(x % 2), 0, 1}; });
  const std::array<CGPoint, 4> quad{{{10, 10}, {90, 10}, {75, 50}, {25, 50}}};
  auto out = stripes->imageByApplyingFilter("CIPerspectiveTransform", cornerParameters(quad));
  const CGRect area = CGRectMake(30, 15, 40, 30);
  std::vector<double> sum(40 * 30), weight(40 * 30);
  for (int y = 0; y < 8 * h; ++y) {
    for (int x = 0; x < 8 * w; ++x) {
      CGPoint p = squareToQuad(quad, (x + 0.5) / (8.0 * w), (y + 0.5) / (8.0 * h));
      int ox = int(std::floor(p.x)) - 30, oy = int(std::floor(p.y)) - 15;
      if (ox < 0 || oy < 0 || ox >= 40 || oy >= 30) continue;
      sum[size_t(oy * 40 + ox)] += (x / 8) % 2;
      weight[size_t(oy * 40 + ox)] += 1;
    }
  }
  auto rendered = test::render(out, area);
  double error = 0;
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      error += std::abs(rendered.at(30 + x, 15 + y)[0] - sum[size_t(y * 40 + x)] / weight[size_t(y * 40 + x)]);
  EXPECT_LT(error / (40 * 30), 0.05);
}

TEST(CIPerspectiveCorrection, MapsTheQuadrilateralToARectangle) {
  auto image = test::coordinateImage(200, 160);
  const std::array<CGPoint, 4> quad{{{30, 20}, {170, 35}, {150, 140}, {40, 120}}};
  auto out = image->imageByApplyingFilter("CIPerspectiveCorrection", cornerParameters(quad));
  const double w = std::max(std::hypot(110.0, 20.0), std::hypot(140.0, 15.0));
  const double h = std::max(std::hypot(10.0, 100.0), std::hypot(20.0, 105.0));
  const CGRect expected = CGRectMake(30, 20, w, h);
  ASSERT_TRUE(CGRectEqualToRect(out->extent(), expected)) << NSStringFromCGRect(out->extent());
  expectReads(
      out, {{40, 30}, {100, 70}, {160, 110}},
      [&](CGPoint p) { return squareToQuad(quad, (p.x - 30) / w, (p.y - 20) / h); }, "corrected");
  // Without the crop the whole input is warped: the extent bounds the images of its corners.
  auto params = cornerParameters(quad);
  params["inputCrop"] = false;
  CGRect whole = image->imageByApplyingFilter("CIPerspectiveCorrection", params)->extent();
  for (CGPoint corner : {CGPoint{0, 0}, CGPoint{200, 0}, CGPoint{200, 160}, CGPoint{0, 160}}) {
    CGPoint uv = quadToSquare(quad, corner);
    CGPoint p{30 + uv.x * w, 20 + uv.y * h};
    EXPECT_TRUE(CGRectContainsPoint(CGRectInset(whole, -1e-6, -1e-6), p)) << p.x << "," << p.y;
  }
  EXPECT_GT(CGRectGetWidth(whole), w);
}

}  // namespace
}  // namespace brenvia
