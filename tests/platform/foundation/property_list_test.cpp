#include "test_support.h"
#include "platform/foundation/property_list.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace brenvia {
namespace {

std::vector<uint8_t> bytesOf(std::string_view s) { return {s.begin(), s.end()}; }

using test::LogCapture;

std::optional<Value> read(const std::vector<uint8_t>& bytes) { return BVPropertyListRead(bytes.data(), bytes.size()); }

Value everyKind() {
  return {
      {"string", "plain"},
      {"unicode", "Grüße \xE2\x9C\x93 \xF0\x9F\x93\xB7 <&> \"quoted\""},
      {"empty string", ""},
      {"negative", -1},
      {"most negative", std::numeric_limits<int64_t>::min()},
      {"largest", std::numeric_limits<int64_t>::max()},
      {"real", 0.1},
      {"negative real", -2.5e-300},
      {"whole real", 3.0},
      {"true", true},
      {"data", {{"$data", "AAEC/w=="}}},
      {"empty data", {{"$data", ""}}},
      {"uid", {{"$uid", 7}}},
      {"empty array", Value::array()},
      {"empty dictionary", Value::object()},
      {"nested", {{"list", {1, "two", {{"three", Value::array({3.5, false})}}}}}},
  };
}

TEST(PropertyList, BinaryAndXMLRoundTripsKeepEveryKindOfValue) {
  for (auto format : {BVPropertyListFormat::Binary, BVPropertyListFormat::XML}) {
    SCOPED_TRACE(format == BVPropertyListFormat::Binary ? "binary" : "XML");
    auto bytes = BVPropertyListWrite(everyKind(), format);
    EXPECT_TRUE(BVLooksLikePropertyList(bytes.data(), bytes.size()));
    auto back = read(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, everyKind());
    // Integers stay integers and reals stay reals.
    EXPECT_TRUE((*back)["whole real"].is_number_float());
    EXPECT_TRUE((*back)["negative"].is_number_integer());
    EXPECT_EQ((*back)["most negative"].get<int64_t>(), std::numeric_limits<int64_t>::min());
    // Any value can stand at the top.
    for (const Value& v : {Value("only"), Value(-42), Value(1.5), Value(true), Value::array({Value::array()})})
      EXPECT_EQ(read(BVPropertyListWrite(v, format)), v);
  }
}

TEST(PropertyList, UnsignedNumbersBeyondTheSignedRangeBecomeReals) {
  Value big = std::numeric_limits<uint64_t>::max();
  auto back = read(BVPropertyListWrite(big));
  ASSERT_TRUE(back);
  EXPECT_TRUE(back->is_number_float());
  EXPECT_DOUBLE_EQ(back->get<double>(), 18446744073709551615.0);
}

TEST(PropertyList, ReadsHandWrittenXML) {
  const char* xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
  <key>name</key><string>Fade &amp; grain</string>
  <key>amount</key><real>0.75</real>
  <key>count</key><integer>-3</integer>
  <key>enabled</key><true/>
  <key>when</key><date>2001-01-01T00:01:40Z</date>
  <key>bytes</key><data>aGVsbG8=</data>
  <key>filters</key>
  <array>
    <dict><key>type</key><string>vignette</string></dict>
    <array/>
  </array>
</dict>
</plist>
)";
  auto v = read(bytesOf(xml));
  EXPECT_EQ(read(bytesOf("<plist><string>&#x263A;&#65;</string></plist>")), Value("\xE2\x98\xBA" "A"));
  ASSERT_TRUE(v);
  Value expected = {{"name", "Fade & grain"}, {"amount", 0.75}, {"count", -3}, {"enabled", true},
                    {"when", 100.0}, {"bytes", {{"$data", "aGVsbG8="}}},
                    {"filters", {{{"type", "vignette"}}, Value::array()}}};
  EXPECT_EQ(*v, expected);
}

TEST(PropertyList, BadInputGivesNothingAndOneLogLine) {
  auto good = BVPropertyListWrite(everyKind());
  auto goodXML = BVPropertyListWrite(everyKind(), BVPropertyListFormat::XML);
  std::string deepXML = "<?xml version=\"1.0\"?><plist>";
  for (int i = 0; i < 2000; ++i) deepXML += "<array>";
  for (int i = 0; i < 2000; ++i) deepXML += "</array>";
  deepXML += "</plist>";

  std::vector<std::pair<std::string, std::vector<uint8_t>>> cases = {
      {"empty", {}},
      {"garbage", bytesOf("this is not a property list")},
      {"truncated binary", std::vector<uint8_t>(good.begin(), good.begin() + good.size() / 2)},
      {"truncated XML", std::vector<uint8_t>(goodXML.begin(), goodXML.begin() + goodXML.size() / 2)},
      {"deep XML", bytesOf(deepXML)},
      {"XML NUL reference", bytesOf("<plist><string>a&#0;b</string></plist>")},
      {"XML wrapping reference", bytesOf("<plist><string>&#x100000000;</string></plist>")},
      {"XML NUL byte", bytesOf(std::string("<plist><string>a\0b</string></plist>", 35))},
  };
  for (const auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    LogCapture log;
    EXPECT_FALSE(BVPropertyListRead(bytes.data(), bytes.size()));
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_TRUE(log.lines[0].starts_with("[BVPropertyList] Could not read property list: ")) << log.lines[0];
  }
}

// A binary property list built by hand: objects, then the offset table, then the trailer.
std::vector<uint8_t> binaryPlist(const std::vector<std::vector<uint8_t>>& objects, uint8_t root = 0) {
  std::vector<uint8_t> out = bytesOf("bplist00");
  std::vector<uint8_t> offsets;
  for (const auto& o : objects) {
    offsets.push_back(static_cast<uint8_t>(out.size()));
    out.insert(out.end(), o.begin(), o.end());
  }
  size_t table = out.size();
  out.insert(out.end(), offsets.begin(), offsets.end());
  std::vector<uint8_t> trailer(32, 0);
  trailer[6] = 1;  // offset size
  trailer[7] = 1;  // reference size
  trailer[15] = static_cast<uint8_t>(objects.size());
  trailer[23] = root;
  trailer[31] = static_cast<uint8_t>(table);
  out.insert(out.end(), trailer.begin(), trailer.end());
  return out;
}

TEST(PropertyList, HostileBinaryGraphsAreRefused) {
  // Sanity: the hand-built layout reads when it is well formed.
  EXPECT_EQ(read(binaryPlist({{0xA1, 1}, {0x11, 0x01, 0x00}})), Value::array({256}));

  // Eight-byte integers are two's complement: all ones is -1.
  EXPECT_EQ(read(binaryPlist({{0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}})), Value(-1));

  LogCapture log;
  EXPECT_FALSE(read(binaryPlist({{0xA1, 0}})));  // an array holding itself
  EXPECT_FALSE(read(binaryPlist({{0xA1, 5}})));  // a reference past the end
  EXPECT_FALSE(read(binaryPlist({{0xAF, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}})));  // huge count
  // Forty levels of arrays that each refer twice to the next expand to 2^40 nodes.
  std::vector<std::vector<uint8_t>> doubling;
  for (uint8_t i = 0; i < 40; ++i) doubling.push_back({0xA2, uint8_t(i + 1), uint8_t(i + 1)});
  doubling.push_back({0x10, 0x00});
  EXPECT_FALSE(read(binaryPlist(doubling)));
  // Strings holding NUL characters, as ASCII and as UTF-16 (keys included).
  EXPECT_FALSE(read(binaryPlist({{0x53, 'a', 0, 'b'}})));
  EXPECT_FALSE(read(binaryPlist({{0xD1, 1, 2}, {0x62, 0, 'a', 0, 0}, {0x09}})));
  EXPECT_EQ(log.lines.size(), 6u);
}

TEST(PropertyList, WritingNullFailsWithOneLogLine) {
  LogCapture log;
  EXPECT_TRUE(BVPropertyListWrite(Value{{"a", Value()}}).empty());
  EXPECT_EQ(log.lines.size(), 1u);
}

TEST(PropertyList, RecognisesBinaryAndXMLHeadersOnly) {
  auto looks = [](std::string_view s) {
    return BVLooksLikePropertyList(reinterpret_cast<const uint8_t*>(s.data()), s.size());
  };
  EXPECT_TRUE(looks("bplist00"));
  EXPECT_TRUE(looks("\xEF\xBB\xBF\n<?xml version=\"1.0\"?>\n<plist version=\"1.0\">"));
  EXPECT_TRUE(looks("<plist><dict/></plist>"));
  EXPECT_FALSE(looks("<?xml version=\"1.0\"?><svg/>"));
  EXPECT_FALSE(looks("bplist0"));
}

TEST(Base64, RoundTripsAndRefusesMalformedText) {
  std::vector<uint8_t> bytes;
  for (int n = 0; n < 8; ++n) {
    auto text = BVBase64Encode(bytes.data(), bytes.size());
    EXPECT_EQ(BVBase64Decode(text), bytes);
    bytes.push_back(static_cast<uint8_t>(0xF0 + n));
  }
  EXPECT_EQ(BVBase64Encode(bytesOf("hello").data(), 5), "aGVsbG8=");
  for (std::string_view bad : {"abc", "a=bc", "ab=c", "****", "aGVs=G8="}) EXPECT_FALSE(BVBase64Decode(bad)) << bad;
}

}  // namespace
}  // namespace brenvia
