#include "test_support.h"

#include "platform/coreimage/engine/kernel.h"
#include "platform/foundation/check.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cstring>

namespace brenvia {
namespace {

using ci::PixelRect;
using ci::PlanarView;
using ci::Span;

// 3x3 box average: a region kernel with a one-pixel halo.
class Box3 final : public ci::RegionKernel {
 public:
  std::string_view name() const override { return "test box"; }
  PixelRect roi(int, const PixelRect& out) const override { return {out.x - 1, out.y - 1, out.w + 2, out.h + 2}; }
  void apply(std::span<const PlanarView* const> in, const PlanarView& out, const ci::RenderEnv&) const override {
    for (int c = 0; c < 4; ++c)
      for (int64_t y = out.rect.y; y < out.rect.maxY(); ++y)
        for (int64_t x = out.rect.x; x < out.rect.maxX(); ++x) {
          float sum = 0;
          for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) sum += in[0]->at(c, x + dx, y + dy);
          out.row(c, y)[x - out.rect.x] = sum / 9;
        }
  }
};

// Adds the second input to the first.
class Add final : public ci::PointKernel {
 public:
  std::string_view name() const override { return "test add"; }
  void apply(Span& s, std::span<const Span* const> o, const ci::RenderEnv&) const override {
    for (int i = 0; i < s.n; ++i)
      s.r[i] += o[0]->r[i], s.g[i] += o[0]->g[i], s.b[i] += o[0]->b[i], s.a[i] += o[0]->a[i];
  }
};

// Reads an input it was not given.
class ReadsASecondInput final : public ci::WholeImageKernel {
 public:
  std::string_view name() const override { return "test second input"; }
  PixelRect roi(int, const PixelRect& out) const override { return out; }
  std::shared_ptr<const ci::RowSource> compute(const ci::BandRenderer& input, const PixelRect& rect,
                                               const ci::RenderEnv&) const override {
    ci::PlanarBuffer buffer(rect);
    input(1, rect, buffer.view());
    return nullptr;
  }
};

// The mean of its input over everything the render needs, counted per computation.
class MeanOfInput final : public ci::WholeImageKernel {
 public:
  mutable std::atomic<int> computations{0};
  std::string_view name() const override { return "test mean"; }
  PixelRect roi(int, const PixelRect& out) const override { return out; }
  std::shared_ptr<const ci::RowSource> compute(const ci::BandRenderer& input, const PixelRect& rect,
                                               const ci::RenderEnv&) const override {
    ++computations;
    ci::PlanarBuffer buffer(rect);
    input(0, rect, buffer.view());
    double sum = 0;
    for (int64_t y = rect.y; y < rect.maxY(); ++y)
      for (int64_t x = rect.x; x < rect.maxX(); ++x) sum += buffer.view().at(0, x, y);
    struct Constant final : ci::RowSource {
      float v;
      void read(Span& s) const override {
        for (int i = 0; i < s.n; ++i) s.r[i] = s.g[i] = s.b[i] = v, s.a[i] = 1;
      }
    };
    auto rows = std::make_shared<Constant>();
    rows->v = float(sum / double(rect.w * rect.h));
    return rows;
  }
};

CIImageRef noise(size_t w, size_t h) { return CIImage::imageWithCGImage(test::noiseBitmap(w, h)); }

std::vector<float> renderWith(const CIImageRef& image, const CGRect& rect, int threads, int tile) {
  CIContextOptions o;
  o.threads = threads;
  o.tileSize = tile;
  return test::renderFloat(image, rect, o);
}

// Noise through the box and the sum with itself, then an affine map that needs resampling: tile
// edges cut through the box halo and the resampling footprint.
CIImageRef boxedSumMoved() {
  auto source = noise(300, 211);
  auto boxed = CIImage::makeRegion(std::make_shared<Box3>(), {source}, source->extent());
  auto sum = CIImage::makePoint(std::make_shared<Add>(), {boxed, source}, source->extent());
  return sum->imageByApplyingTransform(CGAffineTransformMake(0.9, 0.2, -0.1, 1.1, 3.3, -2.7));
}

TEST(Tiling, OutputDoesNotDependOnTileSizeOrThreads) {
  auto moved = boxedSumMoved();
  CGRect rect = CGRectIntegral(moved->extent());
  auto reference = renderWith(moved, rect, 1, 512);
  EXPECT_EQ(reference, renderWith(moved, rect, 2, 512));
  EXPECT_EQ(reference, renderWith(moved, rect, 2, 37));
}

TEST(Tiling, BandsPutTogetherAreTheWholeFrame) {
  auto moved = boxedSumMoved();
  CGRect rect = CGRectIntegral(moved->extent());
  CIContextOptions options;
  options.threads = 2;
  options.tileSize = 37;
  auto context = CIContext::contextWithOptions(options);
  auto whole = context->createCGImage(moved, rect);
  ASSERT_TRUE(whole);
  const size_t rowBytes = whole->width() * 4;
  std::vector<uint8_t> banded(whole->height() * rowBytes);
  std::atomic<size_t> rows{0};
  auto gather = [&](size_t k, const CGImage& band) {
    for (size_t y = 0; y < band.height(); ++y) std::memcpy(&banded[(k * 7 + y) * rowBytes], band.row(y), rowBytes);
    rows += band.height();
    return true;
  };
  ASSERT_TRUE(context->renderBands(moved, rect, context->outputColorSpace(), 7, gather));
  EXPECT_EQ(rows.load(), whole->height());
  for (size_t y = 0; y < whole->height(); ++y)
    ASSERT_EQ(std::memcmp(&banded[y * rowBytes], whole->row(y), rowBytes), 0) << "row " << y;
  std::atomic<int> calls{0};
  EXPECT_FALSE(context->renderBands(moved, rect, nullptr, 7, [&](size_t, const CGImage&) { return ++calls > 3; }));
  EXPECT_LT(calls.load(), 10);
}

TEST(Tiling, WholeImageKernelRunsOncePerRender) {
  auto kernel = std::make_shared<MeanOfInput>();
  auto source = CIImage::imageWithCGImage(test::solidBitmap(100, 80, {10, 10, 10, 255}));
  auto mean = CIImage::makeWholeImage(kernel, {source}, source->extent());
  auto out = renderWith(mean, CGRectMake(0, 0, 100, 80), 2, 16);
  EXPECT_EQ(kernel->computations.load(), 1);
  EXPECT_NEAR(out[0], std::pow((10 / 255.0 + 0.055) / 1.055, 2.4), 1e-5);
  EXPECT_NEAR(out.back(), 1.0f, 0);
}

TEST(Graph, TransformsComposeAndOrientationMovesCorners) {
  auto image = noise(4, 3);
  auto rotated = image->imageByApplyingOrientation(6);
  EXPECT_TRUE(CGRectEqualToRect(rotated->extent(), CGRectMake(0, 0, 3, 4)));
  // The top-left pixel lands at the top-right corner, pixel-exact.
  auto src = renderWith(image, CGRectMake(0, 0, 4, 3), 1, 512);
  auto dst = renderWith(rotated, CGRectMake(0, 0, 3, 4), 1, 512);
  for (int c = 0; c < 4; ++c) EXPECT_EQ(dst[(0 * 3 + 2) * 4 + c], src[c]);
  for (int o = 1; o <= 8; ++o) {
    auto back = image->imageByApplyingOrientation(o);
    // Rendering each orientation is a pure permutation of the pixels.
    auto p = renderWith(back, back->extent(), 1, 512);
    std::vector<float> a(src), b(p);
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    EXPECT_EQ(a, b) << "orientation " << o;
  }
  auto twice = image->imageByApplyingTransform(CGAffineTransformMakeScale(2, 2))
                   ->imageByApplyingTransform(CGAffineTransformMakeScale(0.5, 0.5));
  EXPECT_EQ(twice.get(), image.get());
}

// A colour step over a cropped flat colour is worked out once when the render is planned, and
// the crop still holds.
TEST(Graph, FlatColoursFoldTheirColourSteps) {
  auto square = CIImage::imageWithColor(CIColor(0.2, 0.4, 0.6))->imageByCroppingToRect(CGRectMake(1, 1, 2, 2));
  auto faded = square->imageByApplyingFilter(
      "CIColorMatrix", {{"inputAVector", CIVector{0, 0, 0, 0.5}}, {"inputBiasVector", CIVector{0.1, 0, 0, 0}}});
  auto f = test::renderFloat(faded, CGRectMake(0, 0, 4, 4), test::unmanaged());
  const size_t inside = (1 * 4 + 2) * 4;
  EXPECT_NEAR(f[inside + 3], 0.5f, 1e-6);
  EXPECT_NEAR(f[inside + 0], 0.15f, 1e-6);
  for (int c = 0; c < 4; ++c) EXPECT_EQ(f[size_t(c)], 0.0f);
}

TEST(Graph, EmptyAndInfiniteRectanglesGiveNoBitmap) {
  auto context = CIContext::context();
  auto red = CIImage::imageWithColor(CIColor(1, 0, 0));
  EXPECT_EQ(context->createCGImage(red, CGRectInfinite), nullptr);
  EXPECT_EQ(context->createCGImage(red, CGRectMake(0, 0, 0, 5)), nullptr);
  auto bitmap = context->createCGImage(red, CGRectMake(-3.5, 2, 5, 5));
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(test::pixelAt(bitmap, 4, 4), (std::array<int, 4>{255, 0, 0, 255}));
}

// Broken engine invariants stop the process with the place and the condition, whatever the build.
TEST(GraphDeathTest, BrokenInvariantsAbortWithTheirCondition) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(BV_CHECK(1 + 1 == 3), "engine_test.cpp:[0-9]+: check failed: 1 \\+ 1 == 3");
  auto source = noise(8, 8);
  const CGRect rect = source->extent();
  auto wide = CIImage::makePoint(std::make_shared<Add>(), {source, source, source, source, source, source}, rect);
  EXPECT_DEATH(test::renderFloat(wide, rect), "more inputs than its stage holds");
  auto kernelless = CIImage::makePoint(nullptr, {source}, rect);
  EXPECT_DEATH(test::renderFloat(kernelless, rect), "no kernel of its kind");
  auto reaching = CIImage::makeWholeImage(std::make_shared<ReadsASecondInput>(), {source}, rect);
  EXPECT_DEATH(test::renderFloat(reaching, rect), "asks for an input it does not have");
}

TEST(Registry, UnknownNamesAndKeys) {
  EXPECT_EQ(CIFilter::filterWithName("CINoSuchFilter"), nullptr);
  auto filter = CIFilter::filterWithName("CIColorMatrix");
  ASSERT_TRUE(filter);
  EXPECT_EQ(filter->outputImage(), nullptr);  // no input image
  test::LogCapture log;
  filter->setValue(1.0, "inputBogus");
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_NE(log.lines[0].find("inputBogus"), std::string::npos);
  filter->setValue(CIVector{2, 0, 0, 0}, "inputRVector");
  auto copy = filter->copy();
  EXPECT_EQ(copy->valueForKey("inputRVector"), filter->valueForKey("inputRVector"));
  copy->setDefaults();
  EXPECT_EQ(*copy->valueForKey("inputRVector").get<CIVector>(), (CIVector{1, 0, 0, 0}));
}

}  // namespace
}  // namespace brenvia
