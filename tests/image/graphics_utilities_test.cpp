#include "test_support.h"

#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace brenvia {
namespace {

TEST(GraphicsUtilities, BlendNamesMapToDrawingNumbersAndOperations) {
  EXPECT_EQ(CGBlendModeWithString("multiply"), kCGBlendModeNormal);
  EXPECT_EQ(CIFilterNameFromBVBlendMode("multiply"), "CISourceOverCompositing");
  EXPECT_EQ(CIFilterNameFromBVBlendMode("PlusLighter"), "CIMaximumCompositing");
  EXPECT_EQ(CIFilterNameFromBVBlendMode("VividLight"), "BVVividLightBlendMode");

  EXPECT_EQ(CIFilterNameFromCGBlendMode(kCGBlendModeSourceAtop), "CISourceAtopCompositing");
  EXPECT_FALSE(NSStringFromCGBlendMode(kCGBlendModeSourceAtop));
  EXPECT_EQ(CIFilterNameFromCGBlendMode(kCGBlendModeClear), "CISourceOverCompositing");
  EXPECT_FALSE(NSStringFromCGBlendMode(CGBlendMode(28)));
  // Every named number comes back to itself.
  for (int mode : {0, 1, 5, 12, 15, 16, 26, 27}) {
    EXPECT_EQ(CGBlendModeWithString(*NSStringFromCGBlendMode(CGBlendMode(mode))), mode);
  }
}

TEST(GraphicsUtilities, ScalingModesReadAndPrint) {
  EXPECT_EQ(BVImageScalingModeFromString("custom"), BVImageScalingModeCustom);
  EXPECT_EQ(BVImageScalingModeFromString("Fill"), BVImageScalingModeStretch);
  EXPECT_EQ(BVGetStringFromImageScalingMode(1), "fill");
  EXPECT_EQ(BVGetStringFromImageScalingMode(9), "stretch");
}

std::vector<double> componentsOf(const CGColorRef& color) {
  return color ? color->components() : std::vector<double>{};
}

TEST(GraphicsUtilities, HexColoursOfThreeSixAndEightDigits) {
  const std::vector<double> red{1, 0, 0, 1};
  for (const char* text : {"f00", "#ff0000", "ff0000ff"}) {
    EXPECT_EQ(componentsOf(CGColorCreateWithHex(text)), red) << text;
  }
  EXPECT_EQ(componentsOf(CGColorCreateWithHex("#00000080"))[3], double(128.0f / 255.0f));
  EXPECT_FALSE(CGColorCreateWithHex("ff000"));
  EXPECT_FALSE(CGColorCreateWithHex("#"));
  // No validation: pairs that are no hex digits read as 0, a pair with one digit first as that digit.
  EXPECT_EQ(componentsOf(CGColorCreateWithHex("zzzzzz")), (std::vector<double>{0, 0, 0, 1}));
  EXPECT_EQ(componentsOf(CGColorCreateWithHex("fzzzzz"))[0], double(15.0f / 255.0f));
}

TEST(GraphicsUtilities, FitAndFillRectanglesAreCentred) {
  auto same = [](CGRect a, CGRect b) { return CGRectEqualToRect(a, b); };
  EXPECT_TRUE(same(BVGetRectToFitSizeInSize({200, 100}, {100, 100}), CGRectMake(0, 25, 100, 50)));
  EXPECT_TRUE(same(BVGetRectToFillSizeInSize({200, 100}, {100, 100}), CGRectMake(-50, 0, 200, 100)));
  // Zero sizes are not guarded: a zero container gives an empty rectangle, a zero size NaN or infinity.
  EXPECT_TRUE(same(BVGetRectToFitSizeInSize({200, 100}, {0, 0}), CGRectMake(0, 0, 0, 0)));
  CGRect fromNothing = BVGetRectToFillSizeInSize({0, 0}, {100, 100});
  EXPECT_FALSE(std::isfinite(fromNothing.origin.x));
}

// A 2 by 1 image: red on the left, blue on the right.
CGImageRef redBlue() {
  return test::makeBitmap(2, 1, [](size_t x, size_t) {
    return x == 0 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
  });
}

// Premultiplied B, G, R, A of the images the makers give.
std::array<int, 4> bgra(uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255) { return {b, g, r, a}; }

TEST(GraphicsUtilities, ImageMakersFlipRotateAndScale) {
  CGImageRef flipped = CGImageCreateWithHorizontalFlip(redBlue());
  EXPECT_EQ(test::pixelAt(flipped, 0, 0), bgra(0, 0, 255));
  EXPECT_EQ(test::pixelAt(CGImageCreateWithVerticalFlip(redBlue()), 0, 0), bgra(255, 0, 0));

  // A quarter turn counter-clockwise puts the left pixel at the bottom.
  CGImageRef turned = CGImageCreateWithRotation(redBlue(), 90);
  ASSERT_EQ(turned->width(), 1u);
  ASSERT_EQ(turned->height(), 2u);
  EXPECT_EQ(test::pixelAt(turned, 0, 1), bgra(255, 0, 0));
  EXPECT_EQ(test::pixelAt(turned, 0, 0), bgra(0, 0, 255));

  CGImageRef wide = CGImageCreateWithSize(redBlue(), {8, 3});
  ASSERT_EQ(wide->width(), 8u);
  EXPECT_EQ(test::pixelAt(wide, 0, 2), bgra(255, 0, 0));
  EXPECT_EQ(test::pixelAt(wide, 7, 0), bgra(0, 0, 255));
  EXPECT_FALSE(CGImageCreateWithSize(redBlue(), {0, 3}));
  EXPECT_EQ(CGImageGetBytesPerPixel(wide), 4u);
}

TEST(GraphicsUtilities, BuffersWrapImagesWithoutCopies) {
  CGImageRef source = test::noiseBitmap(5, 3);
  vImage_Buffer buffer = vImage_BufferCreateWithCGImage(source);
  ASSERT_TRUE(buffer.data);
  ASSERT_EQ(buffer.width, 5u);
  const uint8_t* data = static_cast<const uint8_t*>(buffer.data);
  // An inverting table on the colour bytes, alpha (last) left alone.
  std::array<Pixel_8, 256> invert;
  for (int i = 0; i < 256; ++i) invert[size_t(i)] = Pixel_8(255 - i);
  ASSERT_EQ(vImageTableLookUp_ARGB8888(buffer, buffer, invert.data(), invert.data(), invert.data(), nullptr, 0),
            kvImageNoError);
  CGImageRef wrapped = CGImageCreateWithvImage_Buffer(buffer, CGColorSpaceCreateDeviceRGB(), kBVRGBA8BitmapInfo);
  ASSERT_TRUE(wrapped);
  EXPECT_EQ(wrapped->data(), data);
  const uint8_t* in = source->row(2) + 4 * 4;
  auto premultiplied = [&](int c) { return (c * in[3] + 127) / 255; };
  EXPECT_EQ(test::pixelAt(wrapped, 4, 2), (std::array<int, 4>{255 - premultiplied(in[0]), 255 - premultiplied(in[1]),
                                                              255 - premultiplied(in[2]), in[3]}));

  vImage_Buffer planar = vImage_PlanarBufferCreateWithSource(buffer);
  EXPECT_EQ(planar.rowBytes, buffer.rowBytes / 4);
  std::free(planar.data);
  vImage_Buffer destination = vImage_BufferCreateDestinationWithSize({3.7, 2.2}, 4);
  EXPECT_EQ(destination.width, 3u);
  EXPECT_EQ(destination.rowBytes, 12u);
  std::free(destination.data);

  test::LogCapture log;
  EXPECT_FALSE(vImage_BufferCreateWithCGImage(nullptr).data);
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(GraphicsUtilities, ImagesGoToFilesAndComeBack) {
  test::TempFolder folder;
  const std::string path = folder.path("out.png");
  ASSERT_TRUE(CGImageWriteToFile(redBlue(), path, kUTTypePNG, Value{{"Orientation", 6}}));
  CGImageRef back = CGImageCreateWithContentsOfFile(path);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->width(), 2u);
  EXPECT_EQ(imageio::readProperties(path)->value("Orientation", 0), 6);
  EXPECT_FALSE(CGImageCreateWithContentsOfFile(folder.path("missing.png")));

  test::LogCapture log;
  EXPECT_FALSE(CGImageWriteToFile(redBlue(), folder.path("out.gif"), "com.compuserve.gif", nullptr));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_FALSE(CGImageWriteToFile(redBlue(), folder.path("no/such/folder/out.jpg"), kUTTypeJPEG, nullptr));
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(BitmapContext, HoldsThePictureAndFreesTheMemoryItWasGiven) {
  auto context = BVBitmapContext::initWithCGImage(redBlue());
  ASSERT_TRUE(context);
  // The context's own memory, in A, R, G, B bytes.
  const uint8_t* bytes = static_cast<const uint8_t*>(context->bytes());
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 8), (std::vector<uint8_t>{255, 255, 0, 0, 255, 0, 0, 255}));
  EXPECT_EQ(CGBitmapContextGetBytesPerPixel(context->context()), 4u);
  EXPECT_FALSE(BVBitmapContext::initWithCGImage(nullptr));

  void* memory = std::calloc(4, 4);
  auto owning = BVBitmapContext::initWithBytes(memory, 2, 2, 8, 8, CGColorSpaceCreateDeviceRGB(), kBVBGRA8BitmapInfo);
  ASSERT_TRUE(owning);
  EXPECT_EQ(owning->bytes(), memory);
  CGContextSetRGBFillColor(owning->context(), 0, 0, 1, 1);
  CGContextFillRect(owning->context(), CGRectMake(0, 0, 2, 2));
  EXPECT_EQ(static_cast<uint8_t*>(memory)[0], 255);
  owning->setContext(nullptr);
  EXPECT_EQ(owning->bytes(), memory);
  // Refused sizes still free the memory handed over (the sanitizer build checks for leaks).
  EXPECT_FALSE(
      BVBitmapContext::initWithBytes(std::malloc(4), 0, 1, 8, 4, CGColorSpaceCreateDeviceRGB(), kBVBGRA8BitmapInfo));
}

}  // namespace
}  // namespace brenvia
