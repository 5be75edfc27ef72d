#include "test_support.h"

#include "image/graphics_utilities.h"
#include "platform/graphics/cg_context.h"

#include <gtest/gtest.h>

#include <cstring>

namespace brenvia {
namespace {

// A 2 by 1 context whose right pixel starts as (0.25, 0.5, 0.75, 1); the left pixel is then
// filled with half-transparent red. Values are read back from the caller's memory as floats.
struct Layout {
  const char* name;
  CGBitmapInfo info;
  size_t bitsPerComponent, components;
  bool grey;

  size_t bytesPerPixel() const { return bitsPerComponent / 8 * components; }
  float read(const std::vector<uint8_t>& memory, size_t x, size_t c) const {
    const uint8_t* at = memory.data() + x * bytesPerPixel() + c * bitsPerComponent / 8;
    if (bitsPerComponent == 8) return float(*at) / 255.0f;
    if (bitsPerComponent == 32) return *reinterpret_cast<const float*>(at);
    return float(*reinterpret_cast<const _Float16*>(at));
  }
  void write(std::vector<uint8_t>& memory, size_t x, size_t c, float v) const {
    uint8_t* at = memory.data() + x * bytesPerPixel() + c * bitsPerComponent / 8;
    if (bitsPerComponent == 8) *at = uint8_t(std::lround(v * 255));
    if (bitsPerComponent == 32) std::memcpy(at, &v, 4);
    if (bitsPerComponent == 16) *reinterpret_cast<_Float16*>(at) = _Float16(v);
  }
};

TEST(CGContextLayouts, FloatAndGreyMemoryIsReadAndWrittenAroundEachDraw) {
  const Layout layouts[] = {
      {"half", kBVRGBAhBitmapInfo, 16, 4, false},
      {"float", kCGBitmapFloatComponents | kCGBitmapByteOrder32Little | kCGImageAlphaPremultipliedLast, 32, 4, false},
      {"grey", kCGImageAlphaNone, 8, 1, true},
  };
  const float start[] = {0.25f, 0.5f, 0.75f, 1.0f};
  for (const Layout& l : layouts) {
    std::vector<uint8_t> memory(2 * l.bytesPerPixel(), 0);
    for (size_t c = 0; c < l.components; ++c) l.write(memory, 1, c, start[c]);
    auto space = l.grey ? CGColorSpaceCreateDeviceGray() : CGColorSpaceCreateDeviceRGB();
    CGContextRef context = CGBitmapContextCreate(memory.data(), 2, 1, l.bitsPerComponent, 2 * l.bytesPerPixel(),
                                                 space, l.info);
    ASSERT_TRUE(context) << l.name;
    EXPECT_EQ(CGBitmapContextGetBitsPerPixel(context), l.bytesPerPixel() * 8) << l.name;
    CGContextSetRGBFillColor(context, 1, 0, 0, 0.5);
    CGContextFillRect(context, CGRectMake(0, 0, 1, 1));
    // Over black, the grey context keeps the luma of half red.
    const std::vector<float> left = l.grey ? std::vector<float>{0.2126f * 0.5f} : std::vector<float>{0.5f, 0, 0, 0.5f};
    for (size_t c = 0; c < l.components; ++c) {
      EXPECT_NEAR(l.read(memory, 0, c), left[c], 1.5 / 255) << l.name << " channel " << c;
      EXPECT_NEAR(l.read(memory, 1, c), start[c], 1.0 / 255) << l.name << " channel " << c;
    }
    CGImageRef image = CGBitmapContextCreateImage(context);
    ASSERT_TRUE(image) << l.name;
    EXPECT_EQ(image->format(), l.grey ? CGPixelFormat::Gray8 : CGPixelFormat::BGRA8Premultiplied) << l.name;
    EXPECT_NEAR(image->row(0)[l.grey ? 1 : 4], l.grey ? 64 : 191, 1) << l.name;  // blue byte of B,G,R,A
  }
}

TEST(CGContextLayouts, OwnMemoryHasTheRowLengthOfTheLayout) {
  CGContextRef half = CGBitmapContextCreate(nullptr, 3, 2, 16, 0, CGColorSpaceCreateDeviceRGB(), kBVRGBAhBitmapInfo);
  ASSERT_TRUE(half);
  EXPECT_EQ(CGBitmapContextGetBytesPerRow(half), 3u * 8);
  CGContextSetRGBFillColor(half, 0, 0, 1, 1);
  CGContextFillRect(half, CGRectMake(0, 0, 3, 2));
  EXPECT_EQ(float(static_cast<const _Float16*>(CGBitmapContextGetData(half))[2]), 1.0f);
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
