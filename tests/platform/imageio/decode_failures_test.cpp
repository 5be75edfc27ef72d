// Bad input gives no image and exactly one log line; decoding to size; file reads and writes.

#include "platform/imageio/imageio_test_support.h"

#include <random>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brenvia::imageio::testing {
namespace {

using F = CGPixelFormat;

std::vector<uint8_t> validJPEG() {
  return encodeOrDie(*gradient(F::RGB8, 120, 80, CGColorSpaceCreateDeviceRGB()), false);
}
std::vector<uint8_t> validPNG() {
  return encodeOrDie(*gradient(F::RGBA8, 120, 80, CGColorSpaceCreateDeviceRGB()), true);
}

uint32_t crc32(const uint8_t* p, size_t n) {
  uint32_t crc = 0xffffffffu;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  return ~crc;
}

void appendChunk(std::vector<uint8_t>& png, const char* type, std::vector<uint8_t> body) {
  uint32_t n = uint32_t(body.size());
  png.insert(png.end(), {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
  size_t start = png.size();
  png.insert(png.end(), type, type + 4);
  png.insert(png.end(), body.begin(), body.end());
  uint32_t crc = crc32(png.data() + start, png.size() - start);
  png.insert(png.end(), {uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)});
}

// Well-formed headers of a side x side picture with almost no pixel data behind them.
std::vector<uint8_t> hugePNG(uint16_t side) {
  uint8_t hi = uint8_t(side >> 8), lo = uint8_t(side);
  std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  appendChunk(png, "IHDR", {0, 0, hi, lo, 0, 0, hi, lo, 8, 2, 0, 0, 0});
  appendChunk(png, "IDAT", {0x78, 0x9c, 0x03, 0x00, 0x00, 0x00, 0x00, 0x01});
  appendChunk(png, "IEND", {});
  return png;
}

std::vector<uint8_t> hugeJPEG(uint16_t side) {
  uint8_t hi = uint8_t(side >> 8), lo = uint8_t(side);
  std::vector<uint8_t> jpeg(7 + 64, 1);  // start, then a quantisation table of ones
  const uint8_t start[] = {0xff, 0xd8, 0xff, 0xdb, 0x00, 0x43, 0x00};
  std::copy(std::begin(start), std::end(start), jpeg.begin());
  const uint8_t rest[] = {0xff, 0xc0, 0x00, 0x11, 0x08, hi,   lo,   hi,   lo,   0x03,  // frame header
                          0x01, 0x11, 0x00, 0x02, 0x11, 0x00, 0x03, 0x11, 0x00, 0xff, 0xda, 0x00, 0x0c, 0x03,
                          0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x00, 0x3f, 0x00, 0x00, 0x00, 0xff, 0xd9};
  jpeg.insert(jpeg.end(), std::begin(rest), std::end(rest));
  return jpeg;
}

std::vector<uint8_t> firstHalf(std::vector<uint8_t> bytes) {
  bytes.resize(bytes.size() / 2);
  return bytes;
}

std::vector<uint8_t> garbage() {
  std::mt19937 random(7);
  std::vector<uint8_t> bytes(4096);
  for (auto& b : bytes) b = uint8_t(random());
  return bytes;
}

// The signature of a known format followed by noise.
std::vector<uint8_t> signatureThenGarbage(std::vector<uint8_t> signature) {
  auto noise = garbage();
  signature.insert(signature.end(), noise.begin(), noise.end());
  return signature;
}

TEST(ImageIOBadInput, EachFailureGivesNothingAndOneLogLine) {
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
    const char* reason;   // part of the logged reason
    bool headerReadable;  // readProperties still succeeds
  } cases[] = {
      {"empty", {}, "empty", false},
      {"garbage", garbage(), "unrecognised", false},
      {"half JPEG", firstHalf(validJPEG()), "JPEG", true},
      {"half PNG", firstHalf(validPNG()), "PNG", true},
      {"JPEG signature then noise", signatureThenGarbage({0xff, 0xd8, 0xff}), "JPEG", false},
      {"PNG signature then noise", signatureThenGarbage({0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'}), "PNG", false},
      {"huge PNG", hugePNG(60000), "60000 x 60000", false},
      {"huge JPEG", hugeJPEG(60000), "60000 x 60000", false},
      // Within the limit, but the data cannot hold the picture: refused before allocating.
      {"large PNG without data", hugePNG(8000), "too short", true},
      {"large JPEG without data", hugeJPEG(8000), "too short", true},
  };
  TempFolder folder;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    {
      LogCapture log;
      EXPECT_FALSE(decodeData(c.bytes.data(), c.bytes.size(), {}, c.name));
      ASSERT_EQ(log.lines.size(), 1u);
      EXPECT_EQ(log.lines[0].rfind(std::string("[ImageIO] Could not read `") + c.name + "`: ", 0), 0u) << log.lines[0];
      EXPECT_NE(log.lines[0].find(c.reason), std::string::npos) << log.lines[0];
    }
    folder.write("input", c.bytes);
    for (bool headerOnly : {false, true}) {
      LogCapture log;
      bool read =
          headerOnly ? readProperties(folder.path("input")).has_value() : decodeFile(folder.path("input")).has_value();
      EXPECT_EQ(read, headerOnly && c.headerReadable);
      EXPECT_EQ(log.lines.size(), read ? 0u : 1u);
      if (!read) {
        EXPECT_NE(log.lines[0].find("`" + folder.path("input") + "`"), std::string::npos);
      }
    }
  }
}

TEST(ImageIOBadInput, MissingFileIsReportedOnce) {
  LogCapture log;
  EXPECT_FALSE(decodeFile("/nonexistent/picture.jpg"));
  EXPECT_FALSE(readProperties("/nonexistent/picture.jpg"));
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_NE(log.lines[0].find("No such file"), std::string::npos);
}

// The decoder's scaled output rounds odd sizes up.
TEST(ImageIOScaledDecode, JpegOddSizesRoundUp) {
  auto odd = encodeOrDie(*gradient(F::Gray8, 333, 101, CGColorSpaceCreateDeviceGray()), false);
  DecodeOptions eighth;
  eighth.maxPixelSize = 10;
  auto decoded = decodeData(odd.data(), odd.size(), eighth);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->image->width(), 42u);
  EXPECT_EQ(decoded->image->height(), 13u);
  EXPECT_EQ(decoded->properties["PixelWidth"], 333);  // always the file's own size
}

TEST(ImageIOFiles, AtomicWriteReplacesWholeFilesAndLeavesNoDebris) {
  TempFolder folder;
  std::string target = folder.path("out.jpg");
  auto first = validJPEG();
  auto second = validPNG();
  ASSERT_TRUE(writeFileAtomically(target, first));
  ASSERT_TRUE(writeFileAtomically(target, second));
  auto decoded = decodeFile(target);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->image->format(), F::RGBA8);
  EXPECT_EQ(folder.entries(), std::vector<std::string>{"out.jpg"});

  std::string error;
  EXPECT_FALSE(writeFileAtomically(folder.path("missing/out.jpg"), first, &error));
  EXPECT_NE(error.find("temporary"), std::string::npos) << error;
  // A directory in the way: the rename fails and the temporary file is removed.
  std::filesystem::create_directory(folder.path("taken"));
  std::filesystem::create_directory(folder.path("taken/child"));
  EXPECT_FALSE(writeFileAtomically(folder.path("taken"), first, &error));
  std::vector<std::string> names = folder.entries();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"out.jpg", "taken"}));

  LogCapture log;
  EXPECT_FALSE(writeFileAtomically(folder.path("missing/out.jpg"), first));
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].rfind("[ImageIO] Could not write `", 0), 0u);
}

// Writes follow a symbolic link to its file, keep the permissions of the file they replace, and
// clear away temporary files of processes that have ended.
TEST(ImageIOFiles, AtomicWritesFollowLinksKeepModesAndSweepDeadTemporaries) {
  TempFolder folder;
  const std::string target = folder.path("real.png"), link = folder.path("link.png");
  const pid_t ended = ::fork();
  if (ended == 0) ::_exit(0);
  ::waitpid(ended, nullptr, 0);
  const std::string dead = ".real.png.tmp-" + std::to_string(ended) + "-0-0";
  const std::string alive = ".real.png.tmp-" + std::to_string(::getppid()) + "-0-0";
  std::ofstream(folder.path(dead)) << "left by a killed run";
  std::ofstream(folder.path(alive)) << "still being written";
  folder.write("real.png", validJPEG());
  ::chmod(target.c_str(), 0640);
  std::filesystem::create_symlink(target, link);

  ASSERT_TRUE(writeFileAtomically(link, validPNG()));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(decodeFile(target)->image->format(), F::RGBA8);
  struct stat status {};
  ASSERT_EQ(::stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  std::vector<std::string> names = folder.entries();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{alive, "link.png", "real.png"}));
}

}  // namespace
}  // namespace brenvia::imageio::testing
