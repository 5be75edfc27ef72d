#include "platform/foundation/log.h"
#include "platform/foundation/once.h"
#include "platform/foundation/value.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <thread>
#include <vector>

namespace brenvia {
namespace {

TEST(Values, NumbersAreReadAsFloatsAndWidened) {
  EXPECT_EQ(*BVNumber(Value(0.1)), double(0.1f));
  EXPECT_NE(*BVNumber(Value(0.1)), 0.1);
  EXPECT_EQ(*BVDouble(Value(0.1)), 0.1);
  EXPECT_EQ(*BVNumber(Value(true)), 1.0);
  EXPECT_EQ(*BVNumber(Value(3)), 3.0);
  EXPECT_FALSE(BVNumber(Value("1.5")));
  EXPECT_FALSE(BVNumber(Value::array({1})));
  EXPECT_FALSE(BVNumber(Value()));
  EXPECT_EQ(*BVBool(Value(0.0)), false);
  EXPECT_FALSE(BVString(Value(1)));
  Value dict = {{"type", "adjustment"}};
  EXPECT_EQ(*BVString(*BVMember(dict, "type")), "adjustment");
  EXPECT_EQ(BVMember(dict, "missing"), nullptr);
  EXPECT_EQ(BVMember(Value::array(), "type"), nullptr);
}

TEST(Log, HandlerReceivesWholeLinesAndCanBeRestored) {
  std::vector<std::string> lines;
  auto previous = BVSetLogHandler([&](std::string_view l) { lines.emplace_back(l); });
  BVLog("[BVFilter] first");
  BVLog("[BVFilter] second");
  BVSetLogHandler(previous);
  EXPECT_EQ(lines, (std::vector<std::string>{"[BVFilter] first", "[BVFilter] second"}));
}

TEST(Once, BodyRunsOnceAcrossThreads) {
  BVOnce once;
  std::atomic<int> runs{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&] { once([&] { ++runs; }); });
  for (auto& t : threads) t.join();
  EXPECT_EQ(runs.load(), 1);
}

}  // namespace
}  // namespace brenvia
