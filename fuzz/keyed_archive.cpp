// libFuzzer target: keyed archives unarchived with one registered class that reads every kind of
// field, including a nested object of its own class.

#include "platform/foundation/keyed_archive.h"
#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

namespace {

struct FuzzRecord : brenvia::BVCoding {
  std::string className() const override { return "BVFuzzRecord"; }
  void encodeWithCoder(brenvia::BVKeyedArchiver&) const override {}
};

std::shared_ptr<brenvia::BVCoding> decode(brenvia::BVKeyedUnarchiver& coder) {
  (void)coder.decodeDouble("amount");
  (void)coder.decodeInteger("count");
  (void)coder.decodeBool("enabled");
  (void)coder.decodeCGPoint("center");
  (void)coder.decodeObject("settings").dump();
  (void)coder.decodeObjectOfClass<FuzzRecord>("child");
  return std::make_shared<FuzzRecord>();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool setUp = [] {
    brenvia::BVSetLogHandler([](std::string_view) {});
    brenvia::BVKeyedUnarchiver::registerClass("BVFuzzRecord", decode);
    return true;
  }();
  (void)setUp;
  (void)brenvia::BVKeyedUnarchiver::unarchivedObject(data, size);
  return 0;
}
