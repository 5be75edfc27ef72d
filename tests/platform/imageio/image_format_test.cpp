// The output format follows the file name, and the one encode entry writes that format.

#include "platform/imageio/imageio_test_support.h"

#include <cstring>
#include <optional>

namespace brenvia::imageio::testing {
namespace {

TEST(ImageFormat, FollowsTheExtensionInAnyCase) {
  const std::pair<const char*, std::optional<ImageFormat>> cases[] = {
      {"a.jpg", ImageFormat::JPEG},   {"dir/A.JPEG", ImageFormat::JPEG}, {"x.Png", ImageFormat::PNG},
      {"x.heic", ImageFormat::HEIF},  {"x.HEIF", ImageFormat::HEIF},     {"x.webp", ImageFormat::WebP},
      {"x.tif", ImageFormat::TIFF},   {"x.TIFF", ImageFormat::TIFF},     {"x.gif", std::nullopt},
      {"png", std::nullopt},          {"dir/.png", std::nullopt},        {"a.png/b", std::nullopt},
  };
  for (const auto& [path, format] : cases) EXPECT_EQ(formatForPath(path), format) << path;
}

TEST(ImageFormat, EncodeWritesTheFormatAskedFor) {
  auto picture = gradient(CGPixelFormat::RGB8, 16, 8, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  const std::pair<ImageFormat, std::string_view> signatures[] = {
      {ImageFormat::JPEG, "\xff\xd8"}, {ImageFormat::PNG, "\x89PNG"}, {ImageFormat::HEIF, "ftyp"},
      {ImageFormat::WebP, "RIFF"},     {ImageFormat::TIFF, "II*"},
  };
  for (const auto& [format, signature] : signatures) {
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(encode(*picture, format, {}, bytes)) << signature;
    const size_t at = format == ImageFormat::HEIF ? 4 : 0;
    ASSERT_GE(bytes.size(), at + signature.size());
    EXPECT_EQ(std::memcmp(bytes.data() + at, signature.data(), signature.size()), 0) << signature;
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded) << signature;
    EXPECT_EQ(decoded->image->width(), 16u);
  }
}

}  // namespace
}  // namespace brenvia::imageio::testing
