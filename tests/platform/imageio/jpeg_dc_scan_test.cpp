#include "platform/imageio/jpeg_dc_scan.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace brenvia::imageio::detail {
namespace {

// A smooth picture with some texture, w x h, in the given layout (Gray8 or RGB8).
CGImageRef texturedPicture(size_t w, size_t h, CGPixelFormat format) {
  const CGImageRef picture = test::makeBitmap(
      w, h,
      [](size_t x, size_t y) {
        const int texture = int((x * 7 + y * 13) % 23) - 11;
        auto channel = [&](double phase) {
          return uint8_t(std::clamp(128 + int(100 * std::sin(phase + x * 0.03 + y * 0.02)) + texture, 0, 255));
        };
        return std::array<uint8_t, 4>{channel(0), channel(2), channel(4), 255};
      },
      format);
  // Grey pixels in a grey space, so that the file holds one component.
  return format == CGPixelFormat::Gray8
             ? CGImage::create(w, h, picture->bytesPerRow(), format, CGColorSpaceCreateDeviceGray(),
                               std::shared_ptr<const uint8_t[]>(picture, picture->data()))
             : picture;
}

// Largest difference between the DC-only decode and libjpeg's own decode at 1/8 of the size;
// nothing when the DC-only decode leaves the file to libjpeg.
std::optional<int> differenceFromLibjpeg(const std::vector<uint8_t>& file, CGPixelFormat format) {
  jpeg_decompress_struct c{};
  jpeg_error_mgr errors{};
  c.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&c);
  jpeg_mem_src(&c, file.data(), file.size());
  jpeg_read_header(&c, TRUE);
  PixelBuffer dc;
  std::optional<int> largest;
  if (decodeDCScan(c, c.src->next_input_byte, c.src->bytes_in_buffer, format, dc)) {
    c.scale_denom = 8;
    jpeg_start_decompress(&c);
    largest = c.output_width == dc.width && c.output_height == dc.height ? 0 : 255;
    std::vector<uint8_t> row(size_t(c.output_width) * size_t(c.output_components));
    while (*largest == 0 && c.output_scanline < c.output_height) {
      const size_t y = c.output_scanline;
      JSAMPROW rows[] = {row.data()};
      jpeg_read_scanlines(&c, rows, 1);
      for (size_t i = 0; i < row.size(); ++i) largest = std::max(*largest, std::abs(int(row[i]) - int(dc.row(y)[i])));
    }
  }
  jpeg_abort_decompress(&c);
  jpeg_destroy_decompress(&c);
  return largest;
}

TEST(JPEGDCScan, GivesLibjpegsEighthScaleFromTheDCCoefficients) {
  const struct {
    size_t w, h;
    CGPixelFormat format;
    double quality;  // 1: full-resolution chroma
  } cases[] = {{203, 117, CGPixelFormat::RGB8, 1.0}, {64, 40, CGPixelFormat::Gray8, 0.8}};
  for (const auto& c : cases) {
    std::vector<uint8_t> file;
    ASSERT_TRUE(encodeJPEG(*texturedPicture(c.w, c.h, c.format), {.quality = c.quality}, file));
    EXPECT_EQ(differenceFromLibjpeg(file, c.format), 0) << c.w << "x" << c.h;
  }
  // Restart markers between strips.
  const CGImageRef picture = texturedPicture(160, 100, CGPixelFormat::RGB8);
  JPEGStripEncoder strips(160, 100, CGPixelFormat::RGB8, picture->colorSpace(), {}, 16);
  for (size_t k = 0; k < strips.stripCount(); ++k) ASSERT_TRUE(strips.encodeStrip(k, *picture, k * strips.stripRows()));
  std::vector<uint8_t> file;
  ASSERT_TRUE(strips.finish(file));
  EXPECT_EQ(differenceFromLibjpeg(file, CGPixelFormat::RGB8), 0);
}

TEST(JPEGDCScan, LeavesDamagedAndOtherLayoutsToLibjpeg) {
  std::vector<uint8_t> subsampled;
  ASSERT_TRUE(encodeJPEG(*texturedPicture(203, 117, CGPixelFormat::RGB8), {.quality = 0.9}, subsampled));
  EXPECT_EQ(differenceFromLibjpeg(subsampled, CGPixelFormat::RGB8), std::nullopt);
  std::vector<uint8_t> file;
  ASSERT_TRUE(encodeJPEG(*texturedPicture(400, 300, CGPixelFormat::RGB8), {}, file));
  const std::vector<uint8_t> truncated(file.begin(), file.begin() + std::ptrdiff_t(file.size() * 2 / 3));
  EXPECT_FALSE(decodeData(truncated.data(), truncated.size(), {.maxPixelSize = 40}, "truncated"));
  auto whole = decodeData(file.data(), file.size(), {.maxPixelSize = 40});
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->image->width(), 50u);
  // A Huffman table claiming three codes of one bit: more than the length can hold.
  std::vector<uint8_t> overfull = file;
  const uint8_t dht[] = {0xff, 0xc4};
  auto at = std::search(overfull.begin(), overfull.end(), std::begin(dht), std::end(dht));
  ASSERT_NE(at, overfull.end());
  uint8_t* counts = &*at + 5;  // marker, length, class and number
  auto three = std::find_if(counts + 1, counts + 16, [](uint8_t n) { return n >= 3; });
  ASSERT_NE(three, counts + 16);
  *three -= 3;
  counts[0] += 3;
  EXPECT_FALSE(decodeData(overfull.data(), overfull.size(), {.maxPixelSize = 40}, "overfull"));
}

}  // namespace
}  // namespace brenvia::imageio::detail
