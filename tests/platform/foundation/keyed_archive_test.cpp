#include "platform/foundation/keyed_archive.h"
#include "test_support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace brenvia {
namespace {

using test::LogCapture;

// A small record with one field of every kind the coder handles.
struct TestRecord : BVCoding {
  double amount = 0;
  int64_t count = 0;
  bool enabled = false;
  CGPoint center;
  Value settings;
  Value tags;
  std::shared_ptr<TestRecord> child;

  std::string className() const override { return "BVTestRecord"; }
  std::vector<std::string> superclassNames() const override { return {"BVTestBase"}; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override {
    coder.encodeDouble(amount, "amount");
    coder.encodeInteger(count, "count");
    coder.encodeBool(enabled, "enabled");
    coder.encodeCGPoint(center, "center");
    coder.encodeObject(settings, "settings");
    coder.encodeObject(tags, "tags");
    coder.encodeObject(std::shared_ptr<const BVCoding>(child), "child");
  }
  static std::shared_ptr<BVCoding> decode(BVKeyedUnarchiver& coder) {
    auto r = std::make_shared<TestRecord>();
    r->amount = coder.decodeDouble("amount");
    r->count = coder.decodeInteger("count");
    r->enabled = coder.decodeBool("enabled");
    r->center = coder.decodeCGPoint("center");
    r->settings = coder.decodeObject("settings");
    r->tags = coder.decodeObject("tags");
    r->child = coder.decodeObjectOfClass<TestRecord>("child");
    return r;
  }
};

// A class no factory is registered for.
struct UnregisteredRecord : BVCoding {
  std::string className() const override { return "BVUnregisteredRecord"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override { coder.encodeInteger(1, "one"); }
};

// Encodes itself as its own child, forever.
struct EndlessRecord : BVCoding {
  std::string className() const override { return "BVEndlessRecord"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override { coder.encodeObject(*this, "next"); }
};

class KeyedArchive : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { BVKeyedUnarchiver::registerClass("BVTestRecord", TestRecord::decode); }

  static TestRecord sample() {
    TestRecord r;
    r.amount = 0.1;
    r.count = -1;
    r.enabled = true;
    r.center = {12.25, -3.0000001};
    r.settings = {{"name", "Fade"}, {"strength", 0.5}, {"levels", {1, 2, std::numeric_limits<int64_t>::min()}},
                  {"on", false}, {"thumbnail", {{"$data", "AQID"}}}, {"empty", Value::object()}};
    r.tags = Value::array({"warm", "Ünïcödé ✓", Value::array(), 7});
    r.child = std::make_shared<TestRecord>();
    r.child->amount = 2;
    r.child->count = std::numeric_limits<int64_t>::max();
    r.child->tags = Value::array();
    return r;
  }
};

void expectSameRecord(const TestRecord& a, const TestRecord& b) {
  EXPECT_EQ(a.amount, b.amount);
  EXPECT_EQ(a.count, b.count);
  EXPECT_EQ(a.enabled, b.enabled);
  EXPECT_EQ(a.center, b.center);
  EXPECT_EQ(a.settings, b.settings);
  EXPECT_EQ(a.tags, b.tags);
  ASSERT_EQ(a.child == nullptr, b.child == nullptr);
  if (a.child) expectSameRecord(*a.child, *b.child);
}

TEST_F(KeyedArchive, RecordsRoundTripExactlyInBothFormats) {
  for (auto format : {BVPropertyListFormat::Binary, BVPropertyListFormat::XML}) {
    auto bytes = BVKeyedArchiver::archivedData(sample(), format);
    auto back = BVKeyedUnarchiver::unarchivedObjectOfClass<TestRecord>(bytes.data(), bytes.size());
    ASSERT_TRUE(back);
    expectSameRecord(*back, sample());
  }
}

TEST_F(KeyedArchive, LayoutFollowsTheArchiverForm) {
  auto bytes = BVKeyedArchiver::archivedData(sample());
  auto plist = BVPropertyListRead(bytes.data(), bytes.size());
  ASSERT_TRUE(plist);
  EXPECT_EQ((*plist)["$archiver"], "NSKeyedArchiver");
  EXPECT_EQ((*plist)["$version"], 100000);
  EXPECT_EQ((*plist)["$top"], (Value{{"root", {{"$uid", 1}}}}));
  const Value& objects = (*plist)["$objects"];
  EXPECT_EQ(objects[0], "$null");

  const Value& root = objects[1];
  EXPECT_EQ(root["amount"], 0.1);  // scalars inline
  EXPECT_EQ(root["count"], -1);
  EXPECT_EQ(root["enabled"], true);
  EXPECT_EQ(objects[root["center"]["$uid"].get<size_t>()], "{12.25, -3.0000001}");
  const Value& cls = objects[root["$class"]["$uid"].get<size_t>()];
  EXPECT_EQ(cls, (Value{{"$classname", "BVTestRecord"}, {"$classes", {"BVTestRecord", "BVTestBase", "NSObject"}}}));

  const Value& settings = objects[root["settings"]["$uid"].get<size_t>()];
  EXPECT_EQ(settings["NS.keys"].size(), 6u);
  EXPECT_EQ(objects[settings["$class"]["$uid"].get<size_t>()]["$classname"], "NSDictionary");
  const Value& tags = objects[root["tags"]["$uid"].get<size_t>()];
  EXPECT_FALSE(tags.contains("NS.keys"));
  EXPECT_EQ(objects[tags["$class"]["$uid"].get<size_t>()]["$classes"], (Value{"NSArray", "NSObject"}));
  // Both records share one class entry.
  const Value& child = objects[root["child"]["$uid"].get<size_t>()];
  EXPECT_EQ(child["$class"], root["$class"]);
  EXPECT_EQ(child["child"], (Value{{"$uid", 0}}));
}

// Missing keys, and fields read as another type, decode as zero, false and nil.
TEST_F(KeyedArchive, MissingAndMismatchedFieldsDecodeAsMissing) {
  BVKeyedUnarchiver::registerClass("BVTestRecordReadWrongly", [](BVKeyedUnarchiver& coder) -> std::shared_ptr<BVCoding> {
    EXPECT_EQ(coder.className(), "BVTestRecordReadWrongly");
    EXPECT_FALSE(coder.containsValueForKey("absent"));
    EXPECT_FALSE(coder.containsValueForKey("$class"));
    EXPECT_EQ(coder.decodeDouble("absent"), 0.0);
    EXPECT_EQ(coder.decodeInteger("absent"), 0);
    EXPECT_FALSE(coder.decodeBool("absent"));
    EXPECT_TRUE(coder.decodeObject("absent").is_null());
    EXPECT_EQ(coder.decodeObjectOfClass<TestRecord>("absent"), nullptr);
    EXPECT_EQ(coder.decodeCGPoint("absent"), CGPoint{});
    EXPECT_TRUE(coder.containsValueForKey("settings"));
    EXPECT_EQ(coder.decodeDouble("settings"), 0.0);                     // a reference, not a scalar
    EXPECT_EQ(coder.decodeObjectOfClass<TestRecord>("tags"), nullptr);  // a plain array
    EXPECT_TRUE(coder.decodeObject("child").is_null());                 // a coded object
    EXPECT_EQ(coder.decodeCGPoint("tags"), CGPoint{});
    EXPECT_EQ(coder.decodeInteger("enabled"), 1);
    return std::make_shared<TestRecord>();
  });
  struct Renamed : TestRecord {
    std::string className() const override { return "BVTestRecordReadWrongly"; }
  };
  Renamed r;
  static_cast<TestRecord&>(r) = sample();
  auto bytes = BVKeyedArchiver::archivedData(r);
  EXPECT_TRUE(BVKeyedUnarchiver::unarchivedObject(bytes.data(), bytes.size()));
}

TEST_F(KeyedArchive, UnknownClassesAndBrokenGraphsGiveNullAndOneLogLine) {
  auto editAndWrite = [](const std::function<void(Value&)>& edit) {
    auto bytes = BVKeyedArchiver::archivedData(sample());
    Value plist = *BVPropertyListRead(bytes.data(), bytes.size());
    edit(plist);
    return BVPropertyListWrite(plist);
  };
  std::vector<std::pair<std::string, std::vector<uint8_t>>> cases = {
      {"unknown root class", BVKeyedArchiver::archivedData(UnregisteredRecord())},
      {"unknown nested class",
       editAndWrite([&](Value& p) {
         // The child gets its own class entry with an unregistered name.
         Value& objects = p["$objects"];
         size_t child = objects[1]["child"]["$uid"].get<size_t>();
         objects.push_back({{"$classname", "BVNobody"}, {"$classes", {"BVNobody", "NSObject"}}});
         objects[child]["$class"] = {{"$uid", objects.size() - 1}};
       })},
      {"cycle", editAndWrite([](Value& p) { p["$objects"][1]["child"] = {{"$uid", 1}}; })},
      {"reference past the end", editAndWrite([](Value& p) { p["$objects"][1]["tags"] = {{"$uid", 100000}}; })},
      {"plain array holding itself",
       editAndWrite([](Value& p) {
         size_t tags = p["$objects"][1]["tags"]["$uid"].get<size_t>();
         p["$objects"][tags]["NS.objects"][0] = {{"$uid", tags}};
       })},
      {"not an archive", BVPropertyListWrite(Value{{"$objects", "none"}})},
      {"not a property list", std::vector<uint8_t>{'n', 'o'}},
  };
  for (const auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    LogCapture log;
    EXPECT_EQ(BVKeyedUnarchiver::unarchivedObject(bytes.data(), bytes.size()), nullptr);
    EXPECT_EQ(log.lines.size(), 1u);
  }
}

TEST(KeyedArchiver, SelfNestingObjectsAreRefusedWithOneLogLine) {
  LogCapture log;
  EXPECT_TRUE(BVKeyedArchiver::archivedData(EndlessRecord()).empty());
  EXPECT_EQ(log.lines.size(), 1u);
}

}  // namespace
}  // namespace brenvia
