// File metadata: EXIF orientation written and read back, camera tags passed through, header-only reads.

#include "platform/imageio/imageio_test_support.h"

#include <libexif/exif-data.h>

namespace brenvia::imageio::testing {
namespace {

CGImageRef smallPicture() { return gradient(CGPixelFormat::RGB8, 24, 16, CGColorSpaceCreateDeviceRGB()); }

TEST(ImageIOMetadata, OrientationRoundTripsForAllEightValues) {
  TempFolder folder;
  auto source = smallPicture();
  for (bool png : {false, true}) {
    for (int orientation = 0; orientation <= 9; ++orientation) {
      SCOPED_TRACE((png ? "PNG " : "JPEG ") + std::to_string(orientation));
      bool valid = orientation >= 1 && orientation <= 8;
      EncodeOptions options;
      options.orientation = orientation;
      auto bytes = encodeOrDie(*source, png, options);
      // Nothing is written for the default orientation or for values outside 1..8.
      EXPECT_EQ(contains(bytes, "Exif") || contains(bytes, "eXIf"), valid && orientation != 1);
      auto decoded = decodeData(bytes.data(), bytes.size());
      ASSERT_TRUE(decoded);
      EXPECT_EQ(decoded->properties["Orientation"], valid ? orientation : 1);
      // Orientation is reported, never applied.
      EXPECT_EQ(decoded->image->width(), 24u);

      folder.write("picture", bytes);
      auto header = readProperties(folder.path("picture"));
      ASSERT_TRUE(header);
      EXPECT_EQ(*header, decoded->properties);
    }
  }
}

// An EXIF block as a camera writes it, made with libexif.
std::vector<uint8_t> cameraExif(ExifByteOrder order) {
  ExifData* exif = exif_data_new();
  exif_data_unset_option(exif, EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
  exif_data_set_byte_order(exif, order);
  auto add = [&](ExifIfd ifd, ExifTag tag, ExifFormat format, const void* data, unsigned size, unsigned count) {
    ExifEntry* e = exif_entry_new();
    e->tag = tag;
    e->format = format;
    e->components = count;
    e->size = size;
    e->data = static_cast<unsigned char*>(malloc(size));
    std::memcpy(e->data, data, size);
    exif_content_add_entry(exif->ifd[ifd], e);
    exif_entry_unref(e);
  };
  add(EXIF_IFD_0, EXIF_TAG_MAKE, EXIF_FORMAT_ASCII, "Camco\0", 6, 6);
  add(EXIF_IFD_0, EXIF_TAG_MODEL, EXIF_FORMAT_ASCII, "Model \xe9 1\0", 10, 10);  // Latin-1 byte
  unsigned char orientation[2];
  exif_set_short(orientation, order, 3);
  add(EXIF_IFD_0, EXIF_TAG_ORIENTATION, EXIF_FORMAT_SHORT, orientation, 2, 1);
  add(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, EXIF_FORMAT_ASCII, "2021:06:01 12:30:00\0", 20, 20);
  unsigned char exposure[8];
  exif_set_rational(exposure, order, {1, 250});
  add(EXIF_IFD_EXIF, EXIF_TAG_EXPOSURE_TIME, EXIF_FORMAT_RATIONAL, exposure, 8, 1);
  unsigned char iso[2];
  exif_set_short(iso, order, 400);
  add(EXIF_IFD_EXIF, EXIF_TAG_ISO_SPEED_RATINGS, EXIF_FORMAT_SHORT, iso, 2, 1);
  unsigned char* saved = nullptr;
  unsigned int size = 0;
  exif_data_save_data(exif, &saved, &size);
  std::vector<uint8_t> bytes(saved, saved + size);
  free(saved);
  exif_data_unref(exif);
  return bytes;
}

// The JPEG with an APP1 segment holding `exif` placed right after the start marker.
std::vector<uint8_t> withApp1(const std::vector<uint8_t>& jpeg, const std::vector<uint8_t>& exif) {
  std::vector<uint8_t> out(jpeg.begin(), jpeg.begin() + 2);
  size_t length = exif.size() + 2;
  out.insert(out.end(), {0xff, 0xe1, uint8_t(length >> 8), uint8_t(length)});
  out.insert(out.end(), exif.begin(), exif.end());
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

TEST(ImageIOMetadata, CameraTagsPassThroughInBothByteOrders) {
  auto jpeg = encodeOrDie(*smallPicture(), false);
  for (ExifByteOrder order : {EXIF_BYTE_ORDER_INTEL, EXIF_BYTE_ORDER_MOTOROLA}) {
    SCOPED_TRACE(order);
    auto bytes = withApp1(jpeg, cameraExif(order));
    auto decoded = decodeData(bytes.data(), bytes.size());
    ASSERT_TRUE(decoded);
    const Value& p = decoded->properties;
    EXPECT_EQ(p["Orientation"], 3);
    EXPECT_EQ(p["{TIFF}"]["Make"], "Camco");
    EXPECT_EQ(p["{TIFF}"]["Model"], "Model \xc3\xa9 1");  // read as Latin-1, stored as UTF-8
    EXPECT_EQ(p["{TIFF}"]["Orientation"], 3);
    EXPECT_EQ(p["{Exif}"]["DateTimeOriginal"], "2021:06:01 12:30:00");
    EXPECT_DOUBLE_EQ(p["{Exif}"]["ExposureTime"].get<double>(), 1.0 / 250);
    EXPECT_EQ(p["{Exif}"]["ISOSpeedRatings"], Value::array({400}));
    EXPECT_NO_THROW((void)p.dump());
  }
}

}  // namespace
}  // namespace brenvia::imageio::testing
