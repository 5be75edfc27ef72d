// Depth maps and portrait mattes of JPEG files as phones write them, and metadata that lies.
#include "platform/imageio/phone_depth_jpeg_support.h"

#include "cli_support.h"
#include "image/image.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brenvia::imageio::testing {
namespace {

const Bytes kMain = greyJPEG(64, 48, [](size_t, size_t) { return 128; });
const Bytes kDepth = greyJPEG(32, 24, [](size_t x, size_t) { return uint8_t(x * 8); });
const Bytes kMatte = greyJPEG(32, 24, [](size_t x, size_t) { return x < 16 ? 0 : 255; });

std::optional<DecodedImage> map(const Bytes& file, AuxiliaryImage which) {
  DecodeOptions options;
  options.auxiliary = which;
  return decodeData(file.data(), file.size(), options, "phone.jpg");
}

// Sample x of the map's middle row, whatever its depth.
int sample(const DecodedImage& decoded, size_t x) {
  const CGImage& image = *decoded.image;
  const uint8_t* row = image.row(image.height() / 2);
  if (image.format() == CGPixelFormat::Gray16) return reinterpret_cast<const uint16_t*>(row)[x] >> 8;
  return row[x];
}

TEST(PhoneDepthJPEG, ContainerItemsAndMultiPictureIndex) {
  const Bytes container = containerJPEG(kMain, kDepth, kMatte);
  const Bytes indexed =
      mpfJPEG(kMain, withSegments(kMatte, {xmpSegment("<rdf:Description apdi:AuxiliaryImageType=\""
                                                      "urn:com:apple:photo:2018:aux:portraiteffectsmatte\"/>")}));
  for (const Bytes* file : {&container, &indexed}) {
    test::LogCapture log;
    std::optional<DecodedImage> matte = map(*file, AuxiliaryImage::PortraitMatte);
    ASSERT_TRUE(matte);
    EXPECT_EQ(matte->image->width(), 32u);
    EXPECT_FALSE(matte->image->colorSpace()) << "maps are data, not colour";
    EXPECT_LT(sample(*matte, 4), 10);
    EXPECT_GT(sample(*matte, 28), 245);
    EXPECT_TRUE(log.lines.empty());
  }
  std::optional<DecodedImage> depth = map(container, AuxiliaryImage::Disparity);
  ASSERT_TRUE(depth);
  EXPECT_NEAR(sample(*depth, 20), 160, 6);
  EXPECT_FALSE(map(indexed, AuxiliaryImage::Disparity)) << "the index holds only a matte";
  EXPECT_FALSE(map(kMain, AuxiliaryImage::Disparity));
}

// Inverse range data is the disparity as stored; linear range data is distance, turned into
// disparity that is 1 at the near plane.
TEST(PhoneDepthJPEG, GDepthDataInExtendedXMP) {
  const std::string data = "<rdf:Description GDepth:Data=\"" + base64(kDepth) + "\"/>";
  const Bytes inverse =
      withSegments(kMain, {xmpSegment("<rdf:Description GDepth:Format=\"RangeInverse\" GDepth:Mime=\"image/jpeg\"/>"),
                           extendedXMPSegment(data)});
  std::optional<DecodedImage> stored = map(inverse, AuxiliaryImage::Disparity);
  ASSERT_TRUE(stored);
  EXPECT_NEAR(sample(*stored, 20), 160, 6);
  EXPECT_FALSE(map(inverse, AuxiliaryImage::PortraitMatte));

  const Bytes linear = withSegments(
      kMain, {xmpSegment("<rdf:Description GDepth:Format=\"RangeLinear\" GDepth:Near=\"1\" GDepth:Far=\"3\"/>"),
              extendedXMPSegment(data)});
  std::optional<DecodedImage> distance = map(linear, AuxiliaryImage::Disparity);
  ASSERT_TRUE(distance);
  EXPECT_GT(sample(*distance, 0), 250) << "the near plane";
  EXPECT_NEAR(sample(*distance, 31), 255 / (1 + 2 * 248 / 255.0), 8);
}

TEST(PhoneDepthJPEG, MalformedMetadataIsRefusedWithOneLine) {
  const Bytes depthData = extendedXMPSegment("<rdf:Description GDepth:Data=\"" + base64(kDepth) + "\"/>");
  const std::vector<std::pair<const char*, Bytes>> files = {
      {"container item", containerJPEG(kMain, kDepth, kMatte, 1 << 20)},
      {"picture offset", mpfJPEG(kMain, withSegments(kMatte, {xmpSegment("<x portraitMatte=\"1\"/>")}), 1 << 20)},
      {"base64", withSegments(kMain, {xmpSegment("<rdf:Description GDepth:Data=\"#not base64#\"/>")})},
      {"planes", withSegments(kMain, {xmpSegment("<rdf:Description GDepth:Format=\"RangeLinear\" GDepth:Near=\"0\"/>"),
                                      depthData})},
      {"format", withSegments(kMain, {xmpSegment("<rdf:Description GDepth:Format=\"Spiral\"/>"), depthData})},
      {"extended chunk", withSegments(kMain, {extendedXMPSegment("<a/>", 100, 10)})},
      {"stored map", withSegments(kMain, {extendedXMPSegment("<rdf:Description GDepth:Data=\"AAAA\"/>")})},
      {"cut file", Bytes(kMain.begin(), kMain.begin() + 40)},
  };
  for (const auto& [name, file] : files) {
    SCOPED_TRACE(name);
    test::LogCapture log;
    const AuxiliaryImage which =
        std::string(name) == "picture offset" ? AuxiliaryImage::PortraitMatte : AuxiliaryImage::Disparity;
    EXPECT_FALSE(map(file, which));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].rfind("[ImageIO] Could not read", 0), 0u) << log.lines[0];
    EXPECT_NE(log.lines[0].find("phone.jpg"), std::string::npos) << log.lines[0];
  }
}

// The picture object brings both maps to the picture's size, and the tool reports them.
TEST(PhoneDepthJPEG, PicturesAndInfoCarryTheMaps) {
  test::TempFolder folder;
  const std::string path = folder.path("portrait.jpg");
  ASSERT_TRUE(writeFileAtomically(path, containerJPEG(kMain, kDepth, kMatte)));
  auto image = BVImage::initWithContentsOfFile(path, {{std::string(kBVImageInitializationOptionStorageAPIKey),
                                                       std::string(kBVImageInitializationOptionStorageAPICoreImage)}});
  ASSERT_TRUE(image && image->disparityImageStorage() && image->portraitMatteImageStorage());
  EXPECT_EQ(image->disparityImageStorage()->extent().size.width, 64);
  EXPECT_EQ(image->portraitMatteImageStorage()->extent().size.height, 48);

  auto result = test::runCli("info " + path);
  ASSERT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("depth: yes\nmatte: yes\n"), std::string::npos) << result.out;
}

}  // namespace
}  // namespace brenvia::imageio::testing
