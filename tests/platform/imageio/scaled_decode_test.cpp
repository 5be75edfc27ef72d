// Decodes with a maximum size: every format reduces by the same rule and averages what it reduces.

#include "platform/imageio/imageio_test_support.h"

#include <functional>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;
using Encoder = std::function<bool(const CGImage&, const EncodeOptions&, std::vector<uint8_t>&)>;

std::vector<uint8_t> encodeWith(const Encoder& encode, const CGImage& image) {
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(encode(image, {}, bytes));
  return bytes;
}

std::optional<DecodedImage> decodeAt(const std::vector<uint8_t>& bytes, size_t maxPixelSize) {
  DecodeOptions options;
  options.maxPixelSize = maxPixelSize;
  return decodeData(bytes.data(), bytes.size(), options);
}

TEST(ImageIOScaledDecode, EveryFormatReducesByTheRuleOfJpeg) {
  const struct {
    const char* name;
    Encoder encode;
    F format;
  } formats[] = {
      {"PNG", encodePNG, F::RGBA8},   {"PNG16", encodePNG, F::RGB16}, {"WebP", encodeWebP, F::RGBA8},
      {"TIFF", encodeTIFF, F::Gray8}, {"HEIF", encodeHEIF, F::RGB8},  {"JPEG", encodeJPEG, F::RGB8},
  };
  const struct {
    size_t request, width, height;
  } sizes[] = {{0, 200, 121}, {199, 200, 121}, {100, 100, 61}, {26, 50, 31}, {1, 25, 16}, {5000, 200, 121}};
  for (const auto& f : formats) {
    auto source = gradient(f.format, 200, 121, f.format == F::Gray8 ? CGColorSpaceCreateDeviceGray()
                                                                      : CGColorSpaceCreateDeviceRGB());
    const auto bytes = encodeWith(f.encode, *source);
    auto full = decodeAt(bytes, 0);
    ASSERT_TRUE(full) << f.name;
    for (const auto& s : sizes) {
      auto decoded = decodeAt(bytes, s.request);
      ASSERT_TRUE(decoded) << f.name;
      EXPECT_EQ(decoded->image->width(), s.width) << f.name << " " << s.request;
      EXPECT_EQ(decoded->image->height(), s.height) << f.name << " " << s.request;
      EXPECT_EQ(decoded->image->format(), full->image->format()) << f.name;
      EXPECT_EQ(decoded->properties["PixelWidth"], 200) << f.name;
    }
    // A quarter-size pixel is close to the mean of the block it covers, wherever it is read.
    auto quarter = decodeAt(bytes, 50);
    const int top = CGPixelFormatBytesPerPixel(full->image->format()) / CGPixelFormatComponents(full->image->format()) == 2
                        ? 65535 : 255;
    for (size_t c = 0; c < CGPixelFormatComponents(full->image->format()); ++c) {
      double mean = 0;
      for (size_t y = 40; y < 44; ++y)
        for (size_t x = 120; x < 124; ++x) mean += sample(*full->image, x, y, c) / 16.0;
      EXPECT_NEAR(sample(*quarter->image, 30, 10, c), mean, top * 0.02) << f.name << " channel " << c;
    }
  }
}

TEST(ImageIOScaledDecode, TransparentPixelsLendNoColour) {
  // Opaque red beside transparent blue: the average is red at half alpha.
  auto image = test::makeBitmap(4, 2, [](size_t x, size_t y) {
    return (x + y) % 2 ? std::array<uint8_t, 4>{0, 0, 255, 0} : std::array<uint8_t, 4>{255, 0, 0, 255};
  });
  auto decoded = decodeAt(encodeWith(encodePNG, *image), 2);
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->width(), 2u);
  for (size_t x = 0; x < 2; ++x)
    for (size_t c = 0; c < 4; ++c) EXPECT_EQ(sample(*decoded->image, x, 0, c), (std::array{255, 0, 0, 128})[c]) << x;
}

}  // namespace
}  // namespace brenvia::imageio::testing
