// Encoding then decoding keeps pixels: exactly for PNG, closely for JPEG.

#include "platform/imageio/imageio_test_support.h"

#include <spng.h>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;

CGColorSpaceRef srgb() { return CGColorSpaceCreateWithName(kCGColorSpaceSRGB); }
bool isGray(F f) { return f == F::Gray8 || f == F::Gray16; }

TEST(ImageIORoundTrip, PngKeepsEveryCompactLayoutExactly) {
  for (F format : {F::Gray8, F::RGB8, F::RGBA8, F::Gray16, F::RGB16, F::RGBA16}) {
    SCOPED_TRACE(static_cast<int>(format));
    auto source = gradient(format, 37, 23, isGray(format) ? CGColorSpaceCreateDeviceGray() : srgb());
    EncodeOptions options;
    options.sixteenBit = true;
    auto bytes = encodeOrDie(*source, true, options);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), format);
    ASSERT_EQ(decoded->image->width() * decoded->image->height(), 37u * 23u);
    EXPECT_EQ(maxDifference(*source, *decoded->image), 0);
    EXPECT_EQ(decoded->image->colorSpace()->name(), source->colorSpace()->name());
  }
}

TEST(ImageIORoundTrip, PngNarrowsSixteenBitSourcesUnlessAsked) {
  auto source = gradient(F::RGB16, 300, 2, srgb());
  auto bytes = encodeOrDie(*source, true);
  auto decoded = decodeData(bytes.data(), bytes.size());
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->format(), F::RGB8);
  for (size_t x = 0; x < 300; ++x)
    for (size_t c = 0; c < 3; ++c)
      ASSERT_EQ(sample(*decoded->image, x, 1, c), (sample(*source, x, 1, c) * 255 + 32767) / 65535) << x;
}

// Premultiplied, BGRA and float sources come out as straight RGBA; float values are clamped.
TEST(ImageIORoundTrip, PremultipliedAndFloatSourcesAreWrittenStraight) {
  auto premultiplied = CGImage::allocate(2, 1, F::RGBA8Premultiplied, srgb());
  const uint8_t rgba[8] = {100, 50, 0, 128, 0, 0, 0, 0};
  std::memcpy(premultiplied->mutableRow(0), rgba, 8);

  auto bgra = CGImage::allocate(2, 1, F::BGRA8Premultiplied, srgb());
  const uint8_t bgraBytes[8] = {0, 50, 100, 128, 0, 0, 0, 0};
  std::memcpy(bgra->mutableRow(0), bgraBytes, 8);

  auto floats = CGImage::allocate(2, 1, F::RGBAFloatPremultiplied, srgb());
  const float values[8] = {0.25f, 0.5f, 2.0f, 0.5f, -1.0f, 0.0f, 0.0f, 1.0f};
  std::memcpy(floats->mutableRow(0), values, sizeof values);

  struct Case {
    CGImageRef image;
    int expected[8];
  } cases[] = {
      {premultiplied, {199, 100, 0, 128, 0, 0, 0, 0}},
      {bgra, {199, 100, 0, 128, 0, 0, 0, 0}},
      {floats, {128, 255, 255, 128, 0, 0, 0, 255}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.image->format()));
    auto bytes = encodeOrDie(*c.image, true);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), F::RGBA8);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(sample(*decoded->image, i / 4, 0, i % 4), c.expected[i]) << i;

    // JPEG drops alpha but keeps the unpremultiplied colour.
    auto jpeg = encodeOrDie(*c.image, false);
    auto fromJPEG = decodeData(jpeg.data(), jpeg.size());
    ASSERT_TRUE(fromJPEG);
    ASSERT_EQ(fromJPEG->image->format(), F::RGB8);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(sample(*fromJPEG->image, 0, 0, i), c.expected[i], 3) << i;
  }
}

// Writes a PNG with libspng directly, for layouts our encoder never produces.
std::vector<uint8_t> rawPNG(uint8_t colorType, uint8_t depth, const std::vector<uint8_t>& pixels, uint32_t w,
                            uint32_t h, const spng_plte* plte = nullptr, const spng_trns* trns = nullptr) {
  spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
  spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
  spng_ihdr ihdr{w, h, depth, colorType, 0, 0, 0};
  spng_set_ihdr(ctx, &ihdr);
  if (plte) spng_set_plte(ctx, const_cast<spng_plte*>(plte));
  if (trns) spng_set_trns(ctx, const_cast<spng_trns*>(trns));
  int err = spng_encode_image(ctx, pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
  EXPECT_EQ(err, 0) << spng_strerror(err);
  size_t size = 0;
  auto* buffer = static_cast<uint8_t*>(spng_get_png_buffer(ctx, &size, &err));
  std::vector<uint8_t> bytes(buffer, buffer + size);
  free(buffer);
  spng_ctx_free(ctx);
  return bytes;
}

TEST(ImageIORoundTrip, PalettesLowBitDepthsAndTransparencyExpand) {
  spng_plte plte{};
  plte.n_entries = 3;
  plte.entries[0] = {255, 0, 0, 0};
  plte.entries[1] = {0, 255, 0, 0};
  plte.entries[2] = {10, 20, 30, 0};
  spng_trns trns{};
  trns.n_type3_entries = 2;
  trns.type3_alpha[0] = 255;
  trns.type3_alpha[1] = 0;
  const std::vector<uint8_t> indices = {0, 1, 2};

  auto transparent = rawPNG(SPNG_COLOR_TYPE_INDEXED, 8, indices, 3, 1, &plte, &trns);
  auto decoded = decodeData(transparent.data(), transparent.size());
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->format(), F::RGBA8);
  EXPECT_EQ(std::vector<uint8_t>(decoded->image->row(0), decoded->image->row(0) + 12),
            (std::vector<uint8_t>{255, 0, 0, 255, 0, 255, 0, 0, 10, 20, 30, 255}));

  // 4-bit grey: two pixels per byte, scaled so 15 is white.
  auto gray4 = rawPNG(SPNG_COLOR_TYPE_GRAYSCALE, 4, {0xf5, 0x00}, 3, 1);
  decoded = decodeData(gray4.data(), gray4.size());
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->format(), F::Gray8);
  EXPECT_EQ(std::vector<uint8_t>(decoded->image->row(0), decoded->image->row(0) + 3),
            (std::vector<uint8_t>{255, 85, 0}));
  EXPECT_EQ(decoded->image->colorSpace()->model(), CGColorSpaceModel::Monochrome);

  // A grey key colour in tRNS becomes transparent.
  spng_trns grayKey{};
  grayKey.gray = 7;
  auto keyed = rawPNG(SPNG_COLOR_TYPE_GRAYSCALE, 8, {7, 8}, 2, 1, nullptr, &grayKey);
  decoded = decodeData(keyed.data(), keyed.size());
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->format(), F::RGBA8);
  EXPECT_EQ(sample(*decoded->image, 0, 0, 3), 0);
  EXPECT_EQ(sample(*decoded->image, 1, 0, 3), 255);
}

TEST(ImageIORoundTrip, JpegStaysCloseAtFullQuality) {
  struct Case {
    F source, decoded;
  } cases[] = {{F::RGBA8, F::RGB8}, {F::Gray8, F::Gray8}, {F::RGB16, F::RGB8}};
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.source));
    auto source = gradient(c.source, 64, 48, isGray(c.source) ? CGColorSpaceCreateDeviceGray() : srgb());
    auto bytes = encodeOrDie(*source, false);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), c.decoded);
    auto reference = gradient(c.decoded, 64, 48, nullptr);
    EXPECT_LE(maxDifference(*reference, *decoded->image), 3);
  }
}

// Sampling factors of the first component, read from the frame header.
int lumaSampling(const std::vector<uint8_t>& jpeg) {
  for (size_t i = 2; i + 11 < jpeg.size(); ++i)
    if (jpeg[i] == 0xff && jpeg[i + 1] == 0xc0) return jpeg[i + 11];
  return -1;
}

TEST(ImageIORoundTrip, JpegQualityControlsSizeAndChromaResolution) {
  auto source = gradient(F::RGB8, 128, 96, srgb());
  EncodeOptions best, medium, worst;
  medium.quality = 0.5;
  worst.quality = -3;  // clamped to the lowest quality
  auto large = encodeOrDie(*source, false, best);
  auto middle = encodeOrDie(*source, false, medium);
  auto small = encodeOrDie(*source, false, worst);
  EXPECT_GT(large.size(), middle.size());
  EXPECT_GT(middle.size(), small.size());
  EXPECT_EQ(lumaSampling(large), 0x11);   // 4:4:4
  EXPECT_EQ(lumaSampling(middle), 0x22);  // 4:2:0
}

}  // namespace
}  // namespace brenvia::imageio::testing
