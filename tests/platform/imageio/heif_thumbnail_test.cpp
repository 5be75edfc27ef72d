#include "platform/imageio/heif_test_support.h"
#include "platform/imageio/image_io.h"

#include <gtest/gtest.h>

namespace brenvia::imageio {
namespace {

// A red 240 x 160 picture with stored blue thumbnails of 60 x 40, 120 x 80 and, passed over for
// their size or shape, 480 x 320 and 100 x 100.
std::vector<uint8_t> heifWithThumbnails() {
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder);
  auto encode = [&](int w, int h, uint8_t red, uint8_t blue) {
    heif_image* image = testing::makeHeifImage(w, h, false, [=](int, int, int c) {
      return c == 0 ? red : c == 2 ? blue : 0;
    });
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(context, image, encoder, nullptr, &handle);
    heif_image_release(image);
    return handle;
  };
  heif_image_handle* main = encode(240, 160, 220, 0);
  for (auto [w, h] : {std::pair{60, 40}, {120, 80}, {480, 320}, {100, 100}}) {
    heif_image_handle* thumbnail = encode(w, h, 0, 220);
    heif_context_assign_thumbnail(context, thumbnail, main);
    heif_image_handle_release(thumbnail);
  }
  std::vector<uint8_t> bytes;
  heif_writer writer{1, testing::appendHeifBytes};
  heif_context_write(context, &writer, &bytes);
  heif_image_handle_release(main);
  heif_encoder_release(encoder);
  heif_context_free(context);
  return bytes;
}

TEST(HEIFThumbnails, DecodesTheSmallestStoredThumbnailThatIsLargeEnough) {
  const std::vector<uint8_t> file = heifWithThumbnails();
  const struct {
    size_t maxPixelSize, width;
    bool blue;
  } cases[] = {{0, 240, false}, {60, 60, true}, {61, 120, true}, {121, 240, false},
               {25, 30, true}};  // the thumbnail is reduced further, as other formats are
  for (const auto& c : cases) {
    auto decoded = decodeData(file.data(), file.size(), {.maxPixelSize = c.maxPixelSize});
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->image->width(), c.width) << c.maxPixelSize;
    EXPECT_EQ(decoded->properties["PixelWidth"], 240);
    const uint8_t* pixel = decoded->image->row(decoded->image->height() / 2);
    EXPECT_EQ(pixel[2] > pixel[0], c.blue) << c.maxPixelSize;
  }
}

}  // namespace
}  // namespace brenvia::imageio
