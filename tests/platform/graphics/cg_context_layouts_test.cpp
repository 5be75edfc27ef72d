#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/graphics/cg_context.h"
#include "platform/graphics/half_float.h"

#include <gtest/gtest.h>

#include <cstring>

namespace brenvia {
namespace {

// Component c of pixel x in caller memory of 8-bit, half or single float components, as 0-1.
float component(const std::vector<uint8_t>& memory, size_t bits, size_t components, size_t x, size_t c) {
  const uint8_t* at = memory.data() + (x * components + c) * bits / 8;
  if (bits == 8) return float(*at) / 255.0f;
  if (bits == 16) return floatFromHalf(uint16_t(at[0] | at[1] << 8));
  return *reinterpret_cast<const float*>(at);
}

void setComponent(std::vector<uint8_t>& memory, size_t bits, size_t components, size_t x, size_t c, float v) {
  uint8_t* at = memory.data() + (x * components + c) * bits / 8;
  if (bits == 8) *at = uint8_t(std::lround(v * 255));
  if (bits == 16) at[0] = uint8_t(halfFromFloat(v)), at[1] = uint8_t(halfFromFloat(v) >> 8);
  if (bits == 32) std::memcpy(at, &v, 4);
}

// A 2 by 1 context whose right pixel starts as (0.25, 0.5, 0.75, 1): the left pixel is filled with
// half-transparent red, and both are read back from the caller's memory.
TEST(CGContextLayouts, FloatAndGreyMemoryIsReadAndWrittenAroundEachDraw) {
  const struct {
    const char* name;
    CGBitmapInfo info;
    size_t bits, components;
  } layouts[] = {
      {"half", kBVRGBAhBitmapInfo, 16, 4},
      {"float", kCGBitmapFloatComponents | kCGBitmapByteOrder32Little | kCGImageAlphaPremultipliedLast, 32, 4},
      {"grey", kCGImageAlphaNone, 8, 1},
  };
  const float start[] = {0.25f, 0.5f, 0.75f, 1.0f};
  for (const auto& l : layouts) {
    const bool grey = l.components == 1;
    const size_t pixelBytes = l.bits / 8 * l.components;
    std::vector<uint8_t> memory(2 * pixelBytes, 0);
    for (size_t c = 0; c < l.components; ++c) setComponent(memory, l.bits, l.components, 1, c, start[c]);
    auto space = grey ? CGColorSpaceCreateDeviceGray() : CGColorSpaceCreateDeviceRGB();
    CGContextRef context = CGBitmapContextCreate(memory.data(), 2, 1, l.bits, 2 * pixelBytes, space, l.info);
    ASSERT_TRUE(context) << l.name;
    EXPECT_EQ(CGBitmapContextGetBitsPerPixel(context), pixelBytes * 8) << l.name;
    CGContextSetRGBFillColor(context, 1, 0, 0, 0.5);
    CGContextFillRect(context, CGRectMake(0, 0, 1, 1));
    // Over black, the grey context keeps the luma of half red.
    const std::vector<float> left = grey ? std::vector<float>{0.2126f * 0.5f} : std::vector<float>{0.5f, 0, 0, 0.5f};
    for (size_t c = 0; c < l.components; ++c) {
      EXPECT_NEAR(component(memory, l.bits, l.components, 0, c), left[c], 1.5 / 255) << l.name << " " << c;
      EXPECT_NEAR(component(memory, l.bits, l.components, 1, c), start[c], 1.0 / 255) << l.name << " " << c;
    }
    CGImageRef image = CGBitmapContextCreateImage(context);
    ASSERT_TRUE(image) << l.name;
    EXPECT_EQ(image->format(), grey ? CGPixelFormat::Gray8 : CGPixelFormat::BGRA8Premultiplied) << l.name;
    EXPECT_NEAR(image->row(0)[grey ? 1 : 4], grey ? 64 : 191, 1) << l.name;  // blue byte of B,G,R,A
  }
  // Memory of its own has rows of the layout's pixel size.
  CGContextRef own = CGBitmapContextCreate(nullptr, 3, 2, 16, 0, CGColorSpaceCreateDeviceRGB(), kBVRGBAhBitmapInfo);
  ASSERT_TRUE(own);
  EXPECT_EQ(CGBitmapContextGetBytesPerRow(own), 3u * 8);
}

TEST(CGContextLayouts, HalfFloatsRoundToNearestEven) {
  const struct {
    float value;
    uint16_t half;
  } cases[] = {{1.0f, 0x3C00}, {-0.5f, 0xB800}, {65504.0f, 0x7BFF}, {1e6f, 0x7C00}, {0x1p-24f, 0x0001},
               {0x1p-14f, 0x0400}, {1.0f + 0x1p-11f, 0x3C00}, {1.0f + 0x3p-11f, 0x3C02}, {0.1f, 0x2E66}};
  for (const auto& c : cases) {
    EXPECT_EQ(halfFromFloat(c.value), c.half) << c.value;
    if (c.half != 0x7C00) EXPECT_NEAR(floatFromHalf(c.half), c.value, std::abs(c.value) / 1024) << c.value;
  }
}

TEST(CGContextLayouts, UnsupportedLayoutsGiveNoContext) {
  auto rgb = CGColorSpaceCreateDeviceRGB(), grey = CGColorSpaceCreateDeviceGray();
  const struct {
    size_t bitsPerComponent;
    CGColorSpaceRef space;
    CGBitmapInfo info;
  } cases[] = {
      {8, grey, kCGImageAlphaPremultipliedLast},
      {16, grey, kCGImageAlphaNone},
      {8, rgb, kCGImageAlphaNone},
      {8, rgb, kBVRGBAhBitmapInfo},
      {32, rgb, kCGBitmapFloatComponents | kCGImageAlphaPremultipliedFirst},
      {32, rgb, kCGBitmapFloatComponents | kCGBitmapByteOrder32Big | kCGImageAlphaPremultipliedLast},
      {16, rgb, kBVRGBAhBitmapInfo | kCGBitmapByteOrder32Little},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(CGBitmapContextCreate(nullptr, 2, 2, c.bitsPerComponent, 0, c.space, c.info))
        << c.bitsPerComponent << " bits, info " << c.info;
  }
  std::vector<uint8_t> memory(2 * 8);
  EXPECT_FALSE(CGBitmapContextCreate(memory.data(), 2, 1, 16, 12, rgb, kBVRGBAhBitmapInfo));  // rows too short
}

}  // namespace
}  // namespace brenvia
