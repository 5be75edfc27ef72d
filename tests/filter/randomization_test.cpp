#include "filter/filter.h"
#include "filter/randomization.h"
#include "platform/foundation/random_source.h"
#include "processor/image_processor.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <latch>
#include <set>
#include <thread>

namespace brenvia {
namespace {

// Large enough that two independent draws are equal once in a billion.
constexpr uint32_t kWide = 1'000'000'000;

// Ends every pause a test leaves behind, so that the class level is fresh for the next test.
class ClassLevel : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const auto& context : paused_) BVRandomization::resumeRandomizingInContext(context);
  }
  void pause(const BVRandomizationContext& context) {
    BVRandomization::pauseRandomizingInContext(context);
    paused_.push_back(context);
  }
  // True when a few draws with the same key are not all equal.
  static bool drawsChange(const std::function<uint32_t()>& draw) {
    uint32_t first = draw();
    for (int i = 0; i < 4; ++i) {
      if (draw() != first) return true;
    }
    return false;
  }

  std::vector<BVRandomizationContext> paused_;
};

TEST(RandomSource, DrawsStayBelowTheBoundAndReachEveryValue) {
  EXPECT_EQ(RandomInt32Uniform(0), 0u);
  EXPECT_EQ(RandomInt32Uniform(1), 0u);
  std::set<uint32_t> seen;
  for (int i = 0; i < 1000 && seen.size() < 3; ++i) seen.insert(RandomInt32Uniform(3));
  EXPECT_EQ(seen, (std::set<uint32_t>{0, 1, 2}));
  EXPECT_EQ(BVRandomizationDrawKey(100, {}), "100-general");
  EXPECT_EQ(BVRandomizationDrawKey(0xFFFFFFFF, std::string("A")), "-1-A");
}

TEST_F(ClassLevel, PausedDrawsRepeatByBoundAndContext) {
  EXPECT_TRUE(drawsChange([] { return BVRandomization::classRandomInt32Uniform(kWide, std::string("A")); }));
  pause(std::string("A"));
  uint32_t a = BVRandomization::classRandomInt32Uniform(kWide, std::string("A"));
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide, std::string("A")), a);
  EXPECT_NE(BVRandomization::classRandomInt32Uniform(kWide + 1, std::string("A")), a);
  EXPECT_NE(BVRandomization::classRandomInt32Uniform(kWide, std::string("B")), a);
  // Any paused context keeps the draws of every context, objects included.
  int object = 0;
  uint32_t byObject = BVRandomization::classRandomInt32Uniform(kWide, &object);
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide, &object), byObject);

  auto saved = BVRandomization::copyCurrentRandomization();
  EXPECT_EQ(saved->storedRandomizationValues().at(BVRandomizationDrawKey(kWide, std::string("A"))), a);
  BVRandomization::resumeRandomizingInContext(std::string("A"));
  paused_.clear();
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());

  // A saved span put back into a new one gives the same numbers again.
  pause({});
  BVRandomization::loadRandomization(*saved);
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide, std::string("A")), a);
}

TEST_F(ClassLevel, NestedPausesLastUntilTheLastResume) {
  pause(std::string("A"));
  pause(std::string("B"));
  uint32_t kept = BVRandomization::classRandomInt32Uniform(kWide);
  {
    test::LogCapture log;
    BVRandomization::resumeRandomizingInContext(std::string("A"));
    BVRandomization::resumeRandomizingInContext(std::string("never paused"));
    EXPECT_EQ(log.lines, std::vector<std::string>(2, "[BVRandomization] Remaining paused for contexts: B"));
  }
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide), kept);
  BVRandomization::resumeRandomizingInContext(std::string("B"));
  paused_.clear();
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());
  EXPECT_TRUE(drawsChange([] { return BVRandomization::classRandomInt32Uniform(kWide); }));
}

// Threads pause their own contexts, draw the same keys at once, and resume in any order: while any
// context is paused every thread sees one number per key.
TEST_F(ClassLevel, ConcurrentPausesShareOneNumberPerKey) {
  constexpr int kThreads = 6, kDraws = 200;
  std::latch allPaused(kThreads), allDrawn(kThreads);
  std::vector<std::vector<uint32_t>> seen(kThreads);
  auto shared = std::make_shared<BVRandomization>();
  std::vector<uint32_t> sharedSeen(kThreads);
  test::LogCapture log;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::string context = "thread " + std::to_string(t);
      BVRandomization::pauseRandomizingInContext(context);
      allPaused.arrive_and_wait();
      for (int i = 0; i < kDraws; ++i) seen[t].push_back(BVRandomization::classRandomInt32Uniform(kWide + i % 7));
      sharedSeen[t] = shared->randomInt32Uniform(kWide, context);
      allDrawn.arrive_and_wait();
      BVRandomization::resumeRandomizingInContext(context);
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kDraws; ++i) EXPECT_EQ(seen[t][i], seen[0][i % 7]) << t << " " << i;
    EXPECT_EQ(shared->storedRandomizationValues().at(BVRandomizationDrawKey(kWide, "thread " + std::to_string(t))),
              sharedSeen[t]);
  }
  EXPECT_EQ(shared->storedRandomizationValues().size(), size_t(kThreads));
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());
  EXPECT_EQ(log.lines.size(), size_t(kThreads - 1));  // every resume but the last names the others
}

TEST_F(ClassLevel, InstancesKeepTheirOwnDrawsWhateverThePauseState) {
  BVRandomization first, second;
  EXPECT_TRUE(first.isEmpty());
  uint32_t drawn = first.randomInt32Uniform(kWide);
  EXPECT_EQ(first.randomInt32Uniform(kWide), drawn);
  EXPECT_NE(second.randomInt32Uniform(kWide), drawn);
  pause({});
  BVRandomization::classRandomInt32Uniform(kWide + 2);
  EXPECT_EQ(first.randomInt32Uniform(kWide), drawn);
  EXPECT_EQ(first.storedRandomizationValues().size(), 1u);
}

TEST_F(ClassLevel, FiltersDrawUnderTheContextOfTheirRun) {
  auto context = std::make_shared<int>(0);
  auto input = BVInput::initWithRandomization(std::make_shared<BVRandomization>());
  auto processor = BVImageProcessor::initWithFilters({}, BVImageProcessorOptions{.input = input});
  processor->process(BVImage::initWithCGImage(test::solidBitmap(2, 2, {9, 9, 9, 255})), context);
  auto filter = BVFilter::filter();
  filter->setProcessor(processor);
  uint32_t drawn = filter->randomInt32Uniform(kWide);
  EXPECT_EQ(input->randomization->storedRandomizationValues(),
            (BVRandomizationValues{{BVRandomizationDrawKey(kWide, context.get()), drawn}}));

  input->randomization = nullptr;
  pause({});
  EXPECT_EQ(filter->randomInt32Uniform(kWide), BVRandomization::classRandomInt32Uniform(kWide, context.get()));
}

TEST(StoredRandomization, EqualityIsOneWayAndCodingKeepsTheStore) {
  BVRandomization empty, stored;
  stored.setStoredRandomizationValues({{"100-general", 42}, {"2-0x1", 1}});
  EXPECT_TRUE(empty.isEqualToRandomization(stored));
  EXPECT_FALSE(stored.isEqualToRandomization(empty));
  EXPECT_TRUE(stored.isEqual(empty));  // asks the other side
  EXPECT_FALSE(empty.isEqual(stored));
  EXPECT_EQ(stored.copy()->hash(), stored.hash());

  BVRandomization::registerCodingClass();
  auto bytes = BVKeyedArchiver::archivedData(stored);
  auto decoded = BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(bytes.data(), bytes.size());
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->storedRandomizationValues(), stored.storedRandomizationValues());

  // A store of the wrong kind reads as empty; numbers that are no draws are left out.
  struct Forged : BVCoding {
    Value store;
    std::string className() const override { return "BVRandomization"; }
    void encodeWithCoder(BVKeyedArchiver& coder) const override { coder.encodeObject(store, "storedRandomizationValues"); }
  } forged;
  forged.store = Value::array({1, 2});
  bytes = BVKeyedArchiver::archivedData(forged);
  EXPECT_TRUE(BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(bytes.data(), bytes.size())->isEmpty());
  forged.store = {{"5-general", 4}, {"negative", -1}, {"large", 1ll << 33}, {"text", "7"}};
  bytes = BVKeyedArchiver::archivedData(forged);
  EXPECT_EQ(BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(bytes.data(), bytes.size())
                ->storedRandomizationValues(),
            (BVRandomizationValues{{"5-general", 4}}));
}

TEST(StoredRandomization, FilterFrequencyComparesWithADrawBelowOneHundred) {
  auto randomization = std::make_shared<BVRandomization>();
  auto processor = BVImageProcessor::initWithFilters({}, BVImageProcessorOptions{.input = BVInput::initWithRandomization(randomization)});
  auto filter = BVFilter::filter();
  filter->setProcessor(processor);
  EXPECT_TRUE(filter->shouldApply());
  EXPECT_TRUE(randomization->isEmpty());  // frequency 1 draws nothing

  auto appliesWith = [&](double frequency, uint32_t draw) {
    randomization->setStoredRandomizationValues({{"100-general", draw}});
    filter->setParameters({{"filterFrequency", frequency}});
    return filter->shouldApply();
  };
  EXPECT_FALSE(appliesWith(0.0, 99));
  EXPECT_TRUE(appliesWith(0.25, 75));
  EXPECT_FALSE(appliesWith(0.25, 74));
  EXPECT_TRUE(appliesWith(1.5, 0));

  // Without stored draws, a frequency in between sometimes applies and sometimes not.
  auto free = BVFilter::filter();
  free->setParameters({{"filterFrequency", 0.5}});
  std::set<bool> answers;
  for (int i = 0; i < 200 && answers.size() < 2; ++i) answers.insert(free->shouldApply());
  EXPECT_EQ(answers.size(), 2u);
}

TEST(StoredRandomization, MirrorAndRotationDrawsShareTheirKey) {
  BVRandomization randomization;
  randomization.setStoredRandomizationValues({{"2-general", 1}, {"4-general", 1}});
  auto apply = [&](bool h, bool v, double rotation, CGPoint p) {
    return CGPointApplyAffineTransform(p, BVRandomlyMirroredAndRotatedTransform(h, v, false, &randomization, {10, 20}, rotation));
  };
  auto near = [](CGPoint a, CGPoint b) { return std::abs(a.x - b.x) < 1e-5 && std::abs(a.y - b.y) < 1e-5; };
  // All three draws are 1: a half turn about the centre, then both mirrors undo it.
  EXPECT_TRUE(near(apply(false, false, 45, {1, 2}), {9, 18}));
  EXPECT_TRUE(near(apply(true, true, 45, {1, 2}), {1, 2}));
  EXPECT_TRUE(near(apply(true, false, 0, {1, 2}), {9, 2}));
  // A quarter-turn recipe picks from four and draw 1 is still the half turn.
  EXPECT_TRUE(near(apply(false, false, 90, {1, 2}), {9, 18}));
  EXPECT_EQ(randomization.storedRandomizationValues().size(), 2u);
}

}  // namespace
}  // namespace brenvia
