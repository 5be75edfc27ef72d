// HEIF, WebP and TIFF: round trips with orientation and colour profiles, 16-bit TIFF, auxiliary
// maps in HEIF, and damaged files.

#include "image/image.h"
#include "platform/imageio/codec_internal.h"
#include "platform/imageio/heif_test_support.h"
#include "platform/imageio/imageio_test_support.h"

#include <functional>

#include <tiffio.h>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;
using Encoder = std::function<bool(const CGImage&, const EncodeOptions&, std::vector<uint8_t>&)>;

struct Codec {
  const char* name;
  Encoder encode;
  int tolerance;  // largest component error of a smooth picture
};

const Codec kHEIF{"HEIF", encodeHEIF, 12};
const Codec kWebP{"WebP", encodeWebP, 12};
const Codec kTIFF{"TIFF", encodeTIFF, 0};

std::vector<uint8_t> encodeWith(const Codec& codec, const CGImage& image, const EncodeOptions& options = {}) {
  std::vector<uint8_t> bytes;
  EXPECT_TRUE(codec.encode(image, options, bytes)) << codec.name;
  return bytes;
}

CGColorSpaceRef p3() { return CGColorSpaceCreateWithName(kCGColorSpaceDisplayP3); }

// Every format keeps a Display P3 picture as P3 with its pixels as they were (the profile is
// carried, not applied), and an sRGB one with its alpha as sRGB without a profile; an opaque alpha
// channel is left out. TIFF and WebP carry the orientation as a tag; HEIF turns the pixels. The
// properties of the turned file are read without its pixels.
TEST(MoreFormats, RoundTripsKeepLayoutProfileAndOrientation) {
  TempFolder folder;
  auto source = gradient(F::RGB8, 40, 24, p3());
  auto translucent = gradient(F::RGBA8, 32, 20, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  auto opaque = test::solidBitmap(8, 8, {10, 20, 30, 255});
  for (const Codec* codec : {&kHEIF, &kWebP, &kTIFF}) {
    SCOPED_TRACE(codec->name);
    for (const CGImageRef& image : {source, translucent}) {
      auto bytes = encodeWith(*codec, *image);
      auto decoded = decodeData(bytes.data(), bytes.size());
      ASSERT_TRUE(decoded);
      ASSERT_EQ(decoded->image->format(), image->format());
      EXPECT_EQ(decoded->image->colorSpace()->name(), image->colorSpace()->name());
      EXPECT_LE(maxDifference(*image, *decoded->image), codec->tolerance);
    }
    EXPECT_FALSE(contains(encodeWith(*codec, *translucent), "acsp"));  // the signature of every ICC profile
    auto bytes = encodeWith(*codec, *opaque);
    EXPECT_EQ(decodeData(bytes.data(), bytes.size())->image->format(), F::RGB8);

    auto turned = encodeWith(*codec, *source, {1.0, 6, false});
    auto decoded = decodeData(turned.data(), turned.size());
    ASSERT_TRUE(decoded);
    const bool baked = codec == &kHEIF;
    EXPECT_EQ(decoded->properties["Orientation"], baked ? 1 : 6);
    EXPECT_EQ(decoded->image->width(), baked ? 24u : 40u);
    EXPECT_EQ(decoded->properties["PixelWidth"], baked ? 24 : 40);
    std::string path = folder.path(std::string("p.") + codec->name);
    ASSERT_TRUE(writeFileAtomically(path, turned));
    auto properties = readProperties(path);
    ASSERT_TRUE(properties);
    EXPECT_EQ((*properties)["PixelHeight"], baked ? 40 : 24);
    EXPECT_EQ((*properties)["Orientation"], baked ? 1 : 6);
    if (baked) {
      // Orientation 6: the stored left column is the top row of the upright picture, read from the right.
      EXPECT_NEAR(sample(*decoded->image, 23, 0, 1), sample(*source, 0, 0, 1), codec->tolerance);
      EXPECT_NEAR(sample(*decoded->image, 0, 0, 1), sample(*source, 0, 23, 1), codec->tolerance);
    }
  }
}

TEST(MoreFormats, TiffKeepsGreyAndColourLayoutsExactlyIncludingSixteenBits) {
  for (F format : {F::Gray8, F::RGBA8, F::Gray16, F::RGBA16}) {
    SCOPED_TRACE(static_cast<int>(format));
    bool gray = format == F::Gray8 || format == F::Gray16;
    auto source = gradient(format, 300, 7, gray ? CGColorSpaceCreateDeviceGray() : p3());
    EncodeOptions options;
    options.sixteenBit = true;
    auto bytes = encodeWith(kTIFF, *source, options);
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), format);
    EXPECT_EQ(maxDifference(*source, *decoded->image), 0);
  }
}

// Layouts outside the direct path go through libtiff's RGBA reader: here RGB in 16 x 16 tiles,
// with partial tiles at the edges, stored bottom-up (orientation 4), which is reported, not applied.
TEST(MoreFormats, TiledTiffIsReadAsStored) {
  TempFolder folder;
  auto source = gradient(F::RGB8, 20, 18, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  std::string path = folder.path("tiles.tif");
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  ASSERT_TRUE(tiff);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 20);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 18);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_BOTLEFT);
  TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
  TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
  std::vector<uint8_t> tile(16 * 16 * 3);
  for (uint32_t ty = 0; ty < 18; ty += 16)
    for (uint32_t tx = 0; tx < 20; tx += 16) {
      std::fill(tile.begin(), tile.end(), 0);
      for (uint32_t y = ty; y < std::min(ty + 16, 18u); ++y)
        std::memcpy(&tile[(y - ty) * 48], source->row(y) + tx * 3, std::min(16u, 20 - tx) * 3);
      TIFFWriteTile(tiff, tile.data(), tx, ty, 0, 0);
    }
  TIFFClose(tiff);
  auto decoded = decodeFile(path);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->properties["Orientation"], 4);
  ASSERT_EQ(decoded->image->format(), F::RGB8);
  EXPECT_EQ(maxDifference(*source, *decoded->image), 0);
}

// Writes a one-strip TIFF of `samples` samples a pixel from the rows given (deflated when asked).
void writeStripTIFF(const std::string& path, uint32_t width, uint32_t height, uint16_t bits, uint16_t samples,
                    uint16_t photometric, uint16_t extra, const std::vector<uint8_t>& data, bool deflate = false) {
  TIFF* tiff = TIFFOpen(path.c_str(), "w");
  ASSERT_TRUE(tiff);
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
  if (deflate) TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  std::vector<uint16_t> types(size_t(samples > 1 ? samples - 1 : 0), extra);
  if (!types.empty()) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, uint16_t(types.size()), types.data());
  TIFFWriteEncodedStrip(tiff, 0, const_cast<uint8_t*>(data.data()), tmsize_t(data.size()));
  TIFFClose(tiff);
}

// Grey with alpha keeps its alpha and its straight grey at both depths; white-is-zero grey is
// turned over and associated alpha divided out.
TEST(MoreFormats, GreyWithAlphaTiffsKeepGreyAndAlpha) {
  TempFolder folder;
  const struct {
    uint16_t photometric, extra;
    int grey;
  } cases[] = {{PHOTOMETRIC_MINISBLACK, EXTRASAMPLE_UNASSALPHA, 100},
               {PHOTOMETRIC_MINISWHITE, EXTRASAMPLE_UNASSALPHA, 155},
               {PHOTOMETRIC_MINISBLACK, EXTRASAMPLE_ASSOCALPHA, 199}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.grey);
    const std::string path = folder.path("ga.tif");
    writeStripTIFF(path, 3, 2, 8, 2, c.photometric, c.extra,
                   {100, 128, 100, 128, 100, 128, 100, 128, 100, 128, 100, 128});
    auto decoded = decodeFile(path);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->image->format(), F::RGBA8);
    EXPECT_EQ(sample(*decoded->image, 1, 1, 0), c.grey);
    EXPECT_EQ(sample(*decoded->image, 1, 1, 3), 128);
  }
  std::vector<uint8_t> deep(2 * 2 * 2 * 2);
  const uint16_t values[] = {40000, 30000, 40000, 30000, 40000, 30000, 40000, 30000};
  std::memcpy(deep.data(), values, sizeof values);
  writeStripTIFF(folder.path("deep.tif"), 2, 2, 16, 2, PHOTOMETRIC_MINISBLACK, EXTRASAMPLE_UNASSALPHA, deep);
  auto decoded = decodeFile(folder.path("deep.tif"));
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->image->format(), F::RGBA16);
  const auto* pixel = reinterpret_cast<const uint16_t*>(decoded->image->row(1));
  EXPECT_EQ(pixel[0], 40000);
  EXPECT_EQ(pixel[3], 30000);
}

// A tall deflated strip with more samples than any picture uses is refused before it is decoded.
TEST(MoreFormats, ManySampleTiffsAreRefusedAtOnce) {
  TempFolder folder;
  const std::string path = folder.path("many.tif");
  writeStripTIFF(path, 24, 64272, 8, 65, PHOTOMETRIC_MINISBLACK, EXTRASAMPLE_UNSPECIFIED,
                 std::vector<uint8_t>(size_t(24) * 64272 * 65), true);
  EXPECT_FALSE(decodeFile(path));
  EXPECT_TRUE(readProperties(path));
}

TEST(MoreFormats, HeifAuxiliaryMapsAreDecodedUntaggedAndOnlyWhenPresent) {
  for (auto [type, which] :
       {std::pair{kDepthAuxType, AuxiliaryImage::Disparity}, std::pair{kMatteAuxType, AuxiliaryImage::PortraitMatte}}) {
    SCOPED_TRACE(type);
    auto bytes = heifWithAuxiliary(64, 48, type);
    DecodeOptions options;
    options.auxiliary = which;
    auto map = decodeData(bytes.data(), bytes.size(), options);
    ASSERT_TRUE(map);
    EXPECT_EQ(map->image->format(), F::Gray8);
    EXPECT_EQ(map->image->colorSpace(), nullptr);
    EXPECT_EQ(map->image->width(), 32u);
    EXPECT_EQ(map->image->height(), 24u);
    EXPECT_NEAR(sample(*map->image, 0, 5, 0), 0, 8);
    EXPECT_NEAR(sample(*map->image, 31, 5, 0), 255, 8);
    // The main picture is unaffected, and the other kind of map is absent without a log line.
    auto main = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(main);
    EXPECT_EQ(main->image->width(), 64u);
    LogCapture log;
    options.auxiliary = which == AuxiliaryImage::Disparity ? AuxiliaryImage::PortraitMatte : AuxiliaryImage::Disparity;
    EXPECT_FALSE(decodeData(bytes.data(), bytes.size(), options));
    EXPECT_TRUE(log.lines.empty());
  }
}

// Distances 1, 2 and 4 between the planes 1 and 4 become the disparities 1, 1/2 and 1/4.
TEST(MoreFormats, DepthMapsOfDistanceBecomeDisparity) {
  for (F format : {F::Gray8, F::Gray16}) {
    const bool deep = format == F::Gray16;
    auto depth = CGImage::allocate(3, 1, format, nullptr);
    const uint16_t samples[] = {0, uint16_t(deep ? 21845 : 85), uint16_t(deep ? 65535 : 255)};
    for (size_t x = 0; x < 3; ++x) {
      if (deep)
        std::memcpy(depth->mutableRow(0) + 2 * x, &samples[x], 2);
      else
        depth->mutableRow(0)[x] = uint8_t(samples[x]);
    }
    CGImageRef disparity = detail::disparityFromUniformDepth(*depth, 1.0, 4.0);
    ASSERT_TRUE(disparity);
    EXPECT_EQ(disparity->format(), F::Gray16);
    EXPECT_EQ(disparity->colorSpace(), nullptr);
    EXPECT_EQ(sample(*disparity, 0, 0, 0), 65535);
    EXPECT_EQ(sample(*disparity, 1, 0, 0), 32768);
    EXPECT_EQ(sample(*disparity, 2, 0, 0), 16384);
  }
  EXPECT_FALSE(detail::disparityFromUniformDepth(*CGImage::allocate(1, 1, F::RGB8, nullptr), 1.0, 4.0));
}

TEST(MoreFormats, ImagesLoadedFromHeifCarryTheirMaps) {
  TempFolder folder;
  std::string path = folder.path("portrait.heic");
  ASSERT_TRUE(writeFileAtomically(path, heifWithAuxiliary(64, 48, kDepthAuxType)));
  const Value coreImage{{std::string(kBVImageInitializationOptionStorageAPIKey),
                         std::string(kBVImageInitializationOptionStorageAPICoreImage)}};
  auto image = BVImage::initWithContentsOfFile(path, coreImage);
  ASSERT_TRUE(image);
  ASSERT_TRUE(image->disparityImageStorage());
  EXPECT_EQ(image->disparityImageStorage()->extent().size.width, 64) << "brought to the size of the picture";
  EXPECT_FALSE(image->portraitMatteImageStorage());
  Value skip = coreImage;
  skip[std::string(kBVImageInitializationOptionIgnoreDepthDataKey)] = true;
  EXPECT_FALSE(BVImage::initWithContentsOfFile(path, skip)->disparityImageStorage());
}

// Damage of each kind gives nothing and exactly one log line naming the input.
TEST(MoreFormats, DamagedFilesAreRefusedWithOneLogLine) {
  auto source = gradient(F::RGB8, 64, 48, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  for (const Codec* codec : {&kHEIF, &kWebP, &kTIFF}) {
    SCOPED_TRACE(codec->name);
    auto good = encodeWith(*codec, *source);
    std::vector<std::vector<uint8_t>> bad;
    bad.emplace_back(good.begin(), good.begin() + good.size() / 2);  // truncated
    auto garbage = good;
    for (size_t i = 16; i < garbage.size(); ++i) garbage[i] = uint8_t(i * 37 + 11);
    bad.push_back(garbage);
    for (const auto& bytes : bad) {
      LogCapture log;
      EXPECT_FALSE(decodeData(bytes.data(), bytes.size(), {}, "bad"));
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_EQ(log.lines[0].rfind("[ImageIO] Could not read `bad`: ", 0), 0u) << log.lines[0];
    }
  }
}

// Sizes beyond the pixel limit are refused from the header, before any pixel memory.
TEST(MoreFormats, HugeDeclaredSizesAreRefused) {
  auto source = gradient(F::RGB8, 8, 8, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
  auto tiff = encodeWith(kTIFF, *source);
  // Little-endian TIFF written by libtiff: patch the ImageWidth and ImageLength entries of IFD0.
  uint32_t ifd = tiff[4] | tiff[5] << 8 | tiff[6] << 16 | uint32_t(tiff[7]) << 24;
  uint16_t entries = tiff[ifd] | tiff[ifd + 1] << 8;
  for (uint16_t e = 0; e < entries; ++e) {
    uint8_t* entry = &tiff[ifd + 2 + e * 12];
    uint16_t tag = entry[0] | entry[1] << 8;
    if (tag == 256 || tag == 257) {
      entry[2] = 4;  // LONG
      entry[4] = 1;
      uint32_t huge = 100000;
      std::memcpy(entry + 8, &huge, 4);
    }
  }
  LogCapture log;
  EXPECT_FALSE(decodeData(tiff.data(), tiff.size(), {}, "huge"));
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_NE(log.lines[0].find("more than the limit"), std::string::npos) << log.lines[0];

  auto heif = encodeWith(kHEIF, *source);
  // Every "ispe" box (the declared size of each coded picture) claims 100000 x 100000.
  const std::string_view ispe = "ispe";
  for (auto it = heif.begin(); (it = std::search(it, heif.end(), ispe.begin(), ispe.end(),
                                                 [](uint8_t a, char b) { return a == uint8_t(b); })) != heif.end();
       ++it) {
    for (int k = 0; k < 2; ++k) {
      uint8_t* field = &*it + 8 + 4 * k;
      field[0] = 0, field[1] = 1, field[2] = 0x86, field[3] = 0xa0;
    }
  }
  LogCapture heifLog;
  EXPECT_FALSE(decodeData(heif.data(), heif.size(), {}, "huge"));
  EXPECT_EQ(heifLog.lines.size(), 1u);

  // A grid whose descriptor (in the "idat" box) claims a 30000 x 30000 canvas behind small "ispe" sizes.
  auto grid = encodeWith(kHEIF, *source);
  const std::string_view idat = "idat";
  auto box = std::search(grid.begin(), grid.end(), idat.begin(), idat.end(),
                         [](uint8_t a, char b) { return a == uint8_t(b); });
  ASSERT_NE(box, grid.end());
  uint8_t* descriptor = &*box + 4;  // version, flags, rows - 1, columns - 1, then 16-bit width and height
  ASSERT_EQ(descriptor[1] & 1, 0);
  descriptor[4] = descriptor[6] = 0x75, descriptor[5] = descriptor[7] = 0x30;
  LogCapture gridLog;
  EXPECT_FALSE(decodeData(grid.data(), grid.size(), {}, "grid"));
  EXPECT_EQ(gridLog.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia::imageio::testing
