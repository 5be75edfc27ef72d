#include "platform/foundation/executor.h"
#include "platform/foundation/log.h"
#include "platform/foundation/once.h"
#include "platform/foundation/value.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <functional>
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

// Every task starts another and waits for it, more deep than the pool has workers: with waiting
// workers left to start them, the chain would stall for ever. A task no worker has started runs on
// the thread that waits for it.
TEST(Executor, TasksWaitingForTasksNeverStallThePool) {
  const size_t depth = 4 * size_t(BVExecutorConcurrency());
  std::atomic<size_t> finished{0};
  std::function<void(size_t)> step = [&](size_t left) {
    if (left > 0) BVExecutorAsync([&, left] { step(left - 1); }).wait();
    ++finished;
  };
  BVExecutorAsync([&] { step(depth); }).wait();
  EXPECT_EQ(finished.load(), depth + 1);
}

}  // namespace
}  // namespace brenvia
