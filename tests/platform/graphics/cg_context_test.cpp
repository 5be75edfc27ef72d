#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/graphics/cg_context.h"
#include "platform/graphics/cg_gradient.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace brenvia {
namespace {

constexpr size_t kSide = 16;

CGContextRef rgbaContext(std::vector<uint8_t>& memory, size_t w, size_t h) {
  memory.assign(w * h * 4, 0);
  return CGBitmapContextCreate(memory.data(), w, h, 8, w * 4, CGColorSpaceCreateDeviceRGB(), kBVRGBA8BitmapInfo);
}

std::array<int, 4> bytesAt(const std::vector<uint8_t>& memory, size_t w, size_t x, size_t y) {
  const uint8_t* p = memory.data() + (y * w + x) * 4;
  return {p[0], p[1], p[2], p[3]};
}

// Largest byte difference between what the context drew and what the engine rendered.
int worstDifference(const std::vector<uint8_t>& drawn, const CGImageRef& rendered) {
  int worst = 0;
  for (size_t i = 0; i < kSide * kSide * 4; ++i)
    worst = std::max(worst, std::abs(drawn[i] - test::pixelAt(rendered, i / 4 % kSide, i / 4 / kSide)[i % 4]));
  return worst;
}

// The backdrop drawn with `mode` under the source by the context, and by the engine's operation of
// the same mode with colour management off, as premultiplied R,G,B,A bytes.
struct BlendPair {
  std::vector<uint8_t> drawn;
  CGImageRef rendered;
};

BlendPair blendBothWays(CGBlendMode mode, const CGImageRef& backdrop, const CGImageRef& source) {
  BlendPair pair;
  CGContextRef context = rgbaContext(pair.drawn, kSide, kSide);
  const CGRect all = CGRectMake(0, 0, kSide, kSide);
  CGContextDrawImage(context, all, backdrop);
  CGContextSetBlendMode(context, mode);
  CGContextDrawImage(context, all, source);
  auto filter = CIFilter::filterWithName(CIFilterNameFromCGBlendMode(mode));
  filter->setValue(CIImage::imageWithCGImage(source), "inputImage");
  filter->setValue(CIImage::imageWithCGImage(backdrop), "inputBackgroundImage");
  pair.rendered = CIContext::contextWithOptions(test::unmanaged())
                      ->createCGImage(filter->outputImage(), all, kCIFormatRGBA8, nullptr);
  return pair;
}

// Premultiplied 8-bit noise with alpha from 128 up: both roads read the same values.
CGImageRef premultipliedNoise(unsigned seed) {
  std::mt19937 rng(seed);
  return test::makeBitmap(kSide, kSide, [&](size_t, size_t) {
    const unsigned a = (rng() & 0xFF) | 0x80;
    auto channel = [&] { return uint8_t((rng() % 256) * a / 255); };
    return std::array<uint8_t, 4>{channel(), channel(), channel(), uint8_t(a)};
  }, CGPixelFormat::RGBA8Premultiplied);
}

TEST(CGContext, EachBlendModeMatchesTheEngine) {
  CGImageRef backdrop = premultipliedNoise(3);
  CGImageRef source = premultipliedNoise(4);
  for (int mode = kCGBlendModeNormal; mode <= kCGBlendModeLuminosity; ++mode) {
    BlendPair pair = blendBothWays(CGBlendMode(mode), backdrop, source);
    ASSERT_TRUE(pair.rendered) << mode;
    EXPECT_LE(worstDifference(pair.drawn, pair.rendered), 2) << *NSStringFromCGBlendMode(CGBlendMode(mode));
  }
}

TEST(CGContext, ImagesOfAnotherSpaceAreConvertedAsTheEngineDoes) {
  std::mt19937 rng(5);
  auto straight = test::makeBitmap(kSide, kSide, [&](size_t, size_t) {
    return std::array<uint8_t, 4>{uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), 255};
  });
  auto image = CGImage::create(kSide, kSide, straight->bytesPerRow(), CGPixelFormat::RGBA8,
                               CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3),
                               std::shared_ptr<const uint8_t[]>(straight, straight->data()));
  std::vector<uint8_t> drawn;
  CGContextRef context = rgbaContext(drawn, kSide, kSide);
  CGContextSetBlendMode(context, kCGBlendModeCopy);
  CGContextDrawImage(context, CGRectMake(0, 0, kSide, kSide), image);
  CIContextOptions options;
  options.outputColorSpace = CGColorSpaceCreateDeviceRGB();
  CGImageRef rendered = CIContext::contextWithOptions(options)->createCGImage(
      CIImage::imageWithCGImage(image), CGRectMake(0, 0, kSide, kSide), kCIFormatRGBA8, CGColorSpaceCreateDeviceRGB());
  EXPECT_LE(worstDifference(drawn, rendered), 2);
  EXPECT_NE(bytesAt(drawn, kSide, 3, 3), test::pixelAt(straight, 3, 3));
}

TEST(CGContext, PlusDarkerAndPlusLighterAddInPremultipliedValues) {
  std::vector<uint8_t> memory;
  CGContextRef context = rgbaContext(memory, 1, 1);
  const CGRect pixel = CGRectMake(0, 0, 1, 1);
  CGContextSetRGBFillColor(context, 0.6, 0.8, 1.0, 1.0);
  CGContextFillRect(context, pixel);
  CGContextSetBlendMode(context, kCGBlendModePlusDarker);
  CGContextSetRGBFillColor(context, 0.6, 0.4, 0.2, 1.0);
  CGContextFillRect(context, pixel);
  // max(0, 1 - ((1 - S) + (1 - D))) per channel.
  EXPECT_EQ(bytesAt(memory, 1, 0, 0), (std::array<int, 4>{51, 51, 51, 255}));
  CGContextSetBlendMode(context, kCGBlendModePlusLighter);
  CGContextFillRect(context, pixel);
  EXPECT_EQ(bytesAt(memory, 1, 0, 0), (std::array<int, 4>{204, 153, 102, 255}));
}

TEST(CGContext, AlphaAndMaskFadeDrawingUntilTheStateIsRestored) {
  std::vector<uint8_t> memory;
  CGContextRef context = rgbaContext(memory, 2, 1);
  // Left mask pixel white (full coverage), right black (none): a mask without alpha.
  auto mask = CGImage::create(2, 1, 6, CGPixelFormat::RGB8, CGColorSpaceCreateDeviceRGB(),
                              std::shared_ptr<const uint8_t[]>(new uint8_t[6]{255, 255, 255, 0, 0, 0}));
  CGContextSaveGState(context);
  CGContextClipToMask(context, CGRectMake(0, 0, 2, 1), mask);
  CGContextSetAlpha(context, 0.5);
  CGContextSetRGBFillColor(context, 1, 0, 0, 1);
  CGContextFillRect(context, CGRectMake(0, 0, 2, 1));
  EXPECT_NEAR(bytesAt(memory, 2, 0, 0)[0], 128, 1);
  EXPECT_NEAR(bytesAt(memory, 2, 0, 0)[3], 128, 1);
  EXPECT_EQ(bytesAt(memory, 2, 1, 0), (std::array<int, 4>{0, 0, 0, 0}));
  CGContextRestoreGState(context);
  CGContextFillRect(context, CGRectMake(0, 0, 2, 1));
  EXPECT_EQ(bytesAt(memory, 2, 1, 0), (std::array<int, 4>{0, 0, 0, 255}));  // fill colour restored too
}

TEST(CGContext, ContextsAreYUpAndKeepTheCallersByteOrder) {
  std::vector<uint8_t> memory(3 * 2 * 4, 0);
  CGContextRef context =
      CGBitmapContextCreate(memory.data(), 3, 2, 8, 12, CGColorSpaceCreateDeviceRGB(), kBVARGB8BitmapInfo);
  ASSERT_TRUE(context);
  CGContextTranslateCTM(context, 1, 0);
  EXPECT_EQ(CGContextGetCTM(context), CGAffineTransformMakeTranslation(1, 0));
  CGContextSetRGBFillColor(context, 1, 0.5, 0, 1);
  CGContextFillRect(context, CGRectMake(0, 0, 1, 1));
  // The bottom row is the last in memory; bytes are A, R, G, B.
  EXPECT_EQ(bytesAt(memory, 3, 1, 1), (std::array<int, 4>{255, 255, 128, 0}));
  EXPECT_EQ(bytesAt(memory, 3, 1, 0), (std::array<int, 4>{0, 0, 0, 0}));
  // The image is top row first, premultiplied B, G, R, A.
  CGImageRef image = CGBitmapContextCreateImage(context);
  EXPECT_EQ(image->format(), CGPixelFormat::BGRA8Premultiplied);
  EXPECT_EQ(test::pixelAt(image, 1, 1), (std::array<int, 4>{0, 128, 255, 255}));
  CGContextClearRect(context, CGRectMake(-1, 0, 3, 2));
  EXPECT_EQ(bytesAt(memory, 3, 1, 1), (std::array<int, 4>{0, 0, 0, 0}));

  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 0, 2, 8, 0, CGColorSpaceCreateDeviceRGB(), kBVARGB8BitmapInfo));
  EXPECT_FALSE(CGBitmapContextCreate(nullptr, 2, 2, 8, 0, CGColorSpaceCreateDeviceRGB(), kBVRGBAhBitmapInfo));
  EXPECT_FALSE(CGBitmapContextCreate(memory.data(), 4, 2, 8, 12, CGColorSpaceCreateDeviceRGB(), kBVARGB8BitmapInfo));
}

TEST(CGContext, NonFiniteGeometryIsIgnoredAndDrawingGoesOn) {
  std::vector<uint8_t> memory;
  CGContextRef context = rgbaContext(memory, 2, 2);
  const double nan = std::nan(""), infinity = std::numeric_limits<double>::infinity();
  CGContextTranslateCTM(context, infinity, 0);
  CGContextScaleCTM(context, 0, 1);
  CGContextConcatCTM(context, CGAffineTransformMake(1, 0, 0, nan, 0, 0));
  CGContextFillRect(context, CGRectMake(nan, 0, 1, 1));
  CGContextDrawImage(context, CGRectMake(0, 0, infinity, 1), test::solidBitmap(1, 1, {9, 9, 9, 255}));
  const double components[] = {0, 0, 0, 1, 1, 1, 1, 1};
  auto gradient = CGGradientCreateWithColorComponents(CGColorSpaceCreateDeviceRGB(), components, nullptr, 2);
  CGContextDrawLinearGradient(context, gradient, CGPointMake(nan, 0), CGPointMake(1, 0), 0);
  EXPECT_EQ(bytesAt(memory, 2, 0, 0), (std::array<int, 4>{0, 0, 0, 0}));
  CGContextSetRGBFillColor(context, 0, 1, 0, 1);
  CGContextFillRect(context, CGRectMake(0, 0, 2, 2));
  EXPECT_EQ(bytesAt(memory, 2, 1, 1), (std::array<int, 4>{0, 255, 0, 255}));
}

TEST(CGContext, GradientsRunFromStartToEnd) {
  std::vector<uint8_t> memory;
  CGContextRef context = rgbaContext(memory, 8, 1);
  const double components[] = {0, 0, 0, 1, 1, 1, 1, 1};
  CGGradientRef gradient =
      CGGradientCreateWithColorComponents(CGColorSpaceCreateDeviceRGB(), components, nullptr, 2);
  CGContextDrawLinearGradient(context, gradient, CGPointMake(0, 0), CGPointMake(8, 0),
                              kCGGradientDrawsBeforeStartLocation | kCGGradientDrawsAfterEndLocation);
  for (size_t x = 1; x < 8; ++x) EXPECT_GT(bytesAt(memory, 8, x, 0)[0], bytesAt(memory, 8, x - 1, 0)[0]) << x;
  EXPECT_NEAR(bytesAt(memory, 8, 0, 0)[0], 16, 2);  // the first pixel centre is 1/16 of the way

  CGContextClearRect(context, CGRectMake(0, 0, 8, 1));
  CGContextDrawRadialGradient(context, gradient, CGPointMake(0, 0.5), 0, CGPointMake(0, 0.5), 4, 0);
  EXPECT_LT(bytesAt(memory, 8, 0, 0)[0], bytesAt(memory, 8, 3, 0)[0]);
  EXPECT_EQ(bytesAt(memory, 8, 7, 0)[3], 0);  // beyond the end circle without the option
}

TEST(CGContext, ClipBoundingBoxFollowsMaskRectanglesAndTheTransform) {
  std::vector<uint8_t> memory;
  CGContextRef context = rgbaContext(memory, 10, 8);
  CGImageRef mask = test::solidBitmap(1, 1, {255, 255, 255, 255});
  EXPECT_TRUE(CGRectEqualToRect(CGContextGetClipBoundingBox(context), CGRectMake(0, 0, 10, 8)));
  CGContextSaveGState(context);
  CGContextClipToMask(context, CGRectMake(2, 3, 4, 5), mask);
  EXPECT_TRUE(CGRectEqualToRect(CGContextGetClipBoundingBox(context), CGRectMake(2, 3, 4, 5)));  // cut at the top edge
  CGContextClipToMask(context, CGRectMake(4, -2, 10, 6), mask);
  EXPECT_TRUE(CGRectEqualToRect(CGContextGetClipBoundingBox(context), CGRectMake(4, 3, 2, 1)));
  CGContextTranslateCTM(context, 1, 1);
  CGContextScaleCTM(context, 2, 2);
  EXPECT_TRUE(CGRectEqualToRect(CGContextGetClipBoundingBox(context), CGRectMake(1.5, 1, 1, 0.5)));
  CGContextClipToMask(context, CGRectMake(-9, -9, 1, 1), mask);
  EXPECT_TRUE(CGRectIsNull(CGContextGetClipBoundingBox(context)));
  CGContextRestoreGState(context);
  EXPECT_TRUE(CGRectEqualToRect(CGContextGetClipBoundingBox(context), CGRectMake(0, 0, 10, 8)));
}

}  // namespace
}  // namespace brenvia
