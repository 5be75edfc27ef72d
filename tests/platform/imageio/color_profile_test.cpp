// Colour profiles: which profile a file carries, recognition of P3, conversion of other profiles
// to sRGB while decoding, and CMYK JPEGs.

#include "platform/imageio/imageio_test_support.h"

#include <cstdio>

#include <jpeglib.h>
#include <lcms2.h>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;

// A wide-gamut RGB profile (Adobe RGB (1998) primaries, D65, gamma 2.2), neither sRGB nor P3.
std::vector<uint8_t> wideGamutProfile() {
  cmsCIExyY white{0.3127, 0.3290, 1};
  cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 563.0 / 256.0);
  cmsToneCurve* curves[3] = {gamma, gamma, gamma};
  cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(gamma);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::vector<uint8_t> bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  return bytes;
}

// The same colour worked out by hand: published Adobe RGB -> XYZ matrix, then XYZ -> sRGB.
std::array<double, 3> wideGamutToSRGB(const int rgb[3]) {
  const color::Mat3 adobeToXYZ{0.5767309, 0.1855540, 0.1881852, 0.2973769, 0.6273491,
                               0.0752741, 0.0270343, 0.0706872, 0.9911085};
  color::Mat3 m = color::multiply(color::invert(color::kSRGBToXYZ), adobeToXYZ);
  double linear[3];
  for (int c = 0; c < 3; ++c) linear[c] = std::pow(rgb[c] / 255.0, 563.0 / 256.0);
  std::array<double, 3> out{};
  for (int r = 0; r < 3; ++r) {
    double l = m[r * 3] * linear[0] + m[r * 3 + 1] * linear[1] + m[r * 3 + 2] * linear[2];
    out[r] = 255 * color::srgbEncode(std::clamp(l, 0.0, 1.0));
  }
  return out;
}

CGImageRef flat(F format, CGColorSpaceRef space, const int rgb[3]) {
  auto image = CGImage::allocate(16, 16, format, std::move(space));
  bool deep = format == F::RGB16;
  for (size_t y = 0; y < 16; ++y)
    for (size_t x = 0; x < 16; ++x)
      for (size_t c = 0; c < 3; ++c) {
        if (deep) {
          uint16_t v = uint16_t(rgb[c] * 257);
          std::memcpy(image->mutableRow(y) + (x * 3 + c) * 2, &v, 2);
        } else {
          image->mutableRow(y)[x * 3 + c] = uint8_t(rgb[c]);
        }
      }
  return image;
}

TEST(ImageIOColor, DisplayP3IsEmbeddedAndRecognised) {
  auto p3 = CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3);
  auto source = gradient(F::RGB8, 20, 10, p3);
  for (bool png : {true, false}) {
    auto bytes = encodeOrDie(*source, png);
    EXPECT_TRUE(contains(bytes, png ? "iCCP" : "ICC_PROFILE"));
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->image->colorSpace()->name(), kCGColorSpaceDisplayP3);
    // Recognised spaces keep their pixel values.
    EXPECT_LE(maxDifference(*source, *decoded->image), png ? 0 : 3);
  }
}

TEST(ImageIOColor, PlainSpacesAndUntaggedImagesEmbedNoProfile) {
  struct Case {
    CGImageRef image;
    bool srgbChunk;
  } cases[] = {
      {gradient(F::RGB8, 8, 8, CGColorSpaceCreateWithName(kCGColorSpaceSRGB)), true},
      {gradient(F::Gray8, 8, 8, CGColorSpaceCreateDeviceGray()), true},
      {gradient(F::RGB8, 8, 8, nullptr), false},
  };
  for (const Case& c : cases) {
    auto png = encodeOrDie(*c.image, true);
    auto jpeg = encodeOrDie(*c.image, false);
    EXPECT_FALSE(contains(png, "iCCP"));
    EXPECT_EQ(contains(png, "sRGB"), c.srgbChunk);
    EXPECT_FALSE(contains(jpeg, "ICC_PROFILE"));
    auto decoded = decodeData(png.data(), png.size());
    ASSERT_TRUE(decoded);
    EXPECT_NE(decoded->image->colorSpace(), nullptr);
  }
}

TEST(ImageIOColor, OtherProfilesAreConvertedToSRGB) {
  auto icc = wideGamutProfile();
  auto space = CGColorSpaceCreateWithICCData(icc.data(), icc.size());
  ASSERT_TRUE(space && space->isICCBacked());
  const int colour[3] = {60, 200, 80};
  auto expected = wideGamutToSRGB(colour);
  ASSERT_GT(std::abs(expected[0] - colour[0]), 20);  // the conversion visibly moves this colour

  struct Case {
    F format;
    bool png;
    double tolerance;
  } cases[] = {{F::RGB8, true, 1.5}, {F::RGB8, false, 3}, {F::RGB16, true, 1.5}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.format)) + (c.png ? " PNG" : " JPEG"));
    EncodeOptions options;
    options.sixteenBit = true;
    auto bytes = encodeOrDie(*flat(c.format, space, colour), c.png, options);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->image->colorSpace()->name(), kCGColorSpaceSRGB);
    ASSERT_EQ(decoded->image->format(), c.format);
    double scale = c.format == F::RGB16 ? 257 : 1;
    for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(sample(*decoded->image, 8, 8, ch) / scale, expected[ch], c.tolerance);
  }
}

// An 8x8 CMYK JPEG of one colour, written with libjpeg as print software would.
std::vector<uint8_t> cmykJPEG(const uint8_t cmyk[4], bool adobe) {
  jpeg_compress_struct c{};
  jpeg_error_mgr errors{};
  c.err = jpeg_std_error(&errors);
  jpeg_create_compress(&c);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &buffer, &size);
  c.image_width = c.image_height = 8;
  c.input_components = 4;
  c.in_color_space = JCS_CMYK;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 100, TRUE);
  c.write_Adobe_marker = adobe;
  jpeg_start_compress(&c, TRUE);
  uint8_t row[32];
  for (int i = 0; i < 32; ++i) row[i] = cmyk[i % 4];
  JSAMPROW rows[1] = {row};
  while (c.next_scanline < 8) jpeg_write_scanlines(&c, rows, 1);
  jpeg_finish_compress(&c);
  std::vector<uint8_t> bytes(buffer, buffer + size);
  jpeg_destroy_compress(&c);
  free(buffer);
  return bytes;
}

TEST(ImageIOColor, CmykJpegsBecomeRGB) {
  // Full cyan ink with half black, stored plainly and in the inverted Adobe convention.
  const uint8_t plain[4] = {255, 0, 0, 128};
  const uint8_t inverted[4] = {0, 255, 255, 127};
  for (auto [cmyk, adobe] : {std::pair{plain, false}, std::pair{inverted, true}}) {
    auto bytes = cmykJPEG(cmyk, adobe);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), F::RGB8);
    EXPECT_EQ(decoded->image->colorSpace()->name(), kCGColorSpaceSRGB);
    EXPECT_NEAR(sample(*decoded->image, 3, 3, 0), 0, 2);
    EXPECT_NEAR(sample(*decoded->image, 3, 3, 1), 127, 2);
    EXPECT_NEAR(sample(*decoded->image, 3, 3, 2), 127, 2);
  }
}

}  // namespace
}  // namespace brenvia::imageio::testing
