#include "filter/randomization.h"
#include "platform/foundation/random_source.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <latch>
#include <set>
#include <thread>

namespace brenvia {
namespace {

// Large enough that two independent draws are equal once in a billion.
constexpr uint32_t kWide = 1'000'000'000;

// True when a few draws are not all equal.
bool drawsChange(const std::function<uint32_t()>& draw) {
  uint32_t first = draw();
  for (int i = 0; i < 40; ++i) {
    if (draw() != first) return true;
  }
  return false;
}

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
  std::vector<BVRandomizationContext> paused_;
};

TEST(RandomSource, DrawsStayBelowTheBoundAndReachEveryValue) {
  EXPECT_EQ(RandomInt32Uniform(0), 0u);
  EXPECT_EQ(RandomInt32Uniform(1), 0u);
  std::set<uint32_t> seen;
  for (int i = 0; i < 1000 && seen.size() < 3; ++i) seen.insert(RandomInt32Uniform(3));
  EXPECT_EQ(seen, (std::set<uint32_t>{0, 1, 2}));
}

TEST_F(ClassLevel, PausedDrawsRepeatByBoundAndContext) {
  const std::string a = "A";
  EXPECT_TRUE(drawsChange([&] { return BVRandomization::classRandomInt32Uniform(kWide, a); }));
  pause(a);
  uint32_t drawn = BVRandomization::classRandomInt32Uniform(kWide, a);
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide, a), drawn);
  EXPECT_NE(BVRandomization::classRandomInt32Uniform(kWide + 1, a), drawn);
  EXPECT_NE(BVRandomization::classRandomInt32Uniform(kWide, std::string("B")), drawn);

  auto saved = BVRandomization::copyCurrentRandomization();
  EXPECT_EQ(saved->storedRandomizationValues().at("1000000000-A"), drawn);
  BVRandomization::resumeRandomizingInContext(a);
  paused_.clear();
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());
  // A saved span loaded into a new one gives the same numbers again.
  pause({});
  BVRandomization::loadRandomization(*saved);
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide, a), drawn);
}

TEST_F(ClassLevel, NestedPausesLastUntilTheLastResume) {
  pause(std::string("A"));
  pause(std::string("B"));
  uint32_t kept = BVRandomization::classRandomInt32Uniform(kWide);
  {
    test::LogCapture log;
    BVRandomization::resumeRandomizingInContext(std::string("A"));
    BVRandomization::resumeRandomizingInContext(std::string("never paused"));
    EXPECT_EQ(log.lines.size(), 2u);  // each resume names the contexts still paused
  }
  EXPECT_EQ(BVRandomization::classRandomInt32Uniform(kWide), kept);
  BVRandomization::resumeRandomizingInContext(std::string("B"));
  paused_.clear();
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());
  EXPECT_TRUE(drawsChange([] { return BVRandomization::classRandomInt32Uniform(kWide); }));
}

// Threads pause their own contexts, draw the same keys at once on the class level and on one
// instance, and resume in any order: while any context is paused there is one number per key.
TEST_F(ClassLevel, ConcurrentPausesShareOneNumberPerKey) {
  constexpr int kThreads = 6, kDraws = 200;
  std::latch allPaused(kThreads), allDrawn(kThreads);
  std::vector<std::vector<uint32_t>> seen(kThreads);
  BVRandomization shared;
  test::LogCapture log;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const std::string context = "thread " + std::to_string(t);
      BVRandomization::pauseRandomizingInContext(context);
      allPaused.arrive_and_wait();
      for (int i = 0; i < kDraws; ++i) seen[t].push_back(BVRandomization::classRandomInt32Uniform(kWide + i));
      for (int i = 0; i < kDraws; ++i) seen[t].push_back(shared.randomInt32Uniform(kWide + i));
      allDrawn.arrive_and_wait();
      BVRandomization::resumeRandomizingInContext(context);
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 1; t < kThreads; ++t) EXPECT_EQ(seen[t], seen[0]) << t;
  EXPECT_EQ(shared.storedRandomizationValues().size(), size_t(kDraws));
  EXPECT_TRUE(BVRandomization::copyCurrentRandomization()->isEmpty());
  EXPECT_EQ(log.lines.size(), size_t(kThreads - 1));  // every resume but the last names the others
}

TEST(StoredRandomization, EqualityIsOneWayAndCodingKeepsOnlyDraws) {
  BVRandomization empty, stored;
  stored.setStoredRandomizationValues({{"100-general", 42}, {"-1-A", 1}});
  EXPECT_TRUE(empty.isEqualToRandomization(stored));
  EXPECT_FALSE(stored.isEqualToRandomization(empty));
  EXPECT_TRUE(stored.isEqual(empty));  // asks the other side
  EXPECT_FALSE(empty.isEqual(stored));
  EXPECT_EQ(stored.copy()->hash(), stored.hash());

  BVRandomization::registerCodingClass();
  auto decode = [](const BVCoding& record) {
    auto bytes = BVKeyedArchiver::archivedData(record);
    return BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(bytes.data(), bytes.size());
  };
  EXPECT_EQ(decode(stored)->storedRandomizationValues(), stored.storedRandomizationValues());
  // A stored number that is no draw, or not below the bound its key names, is left out.
  struct Forged : BVCoding {
    std::string className() const override { return "BVRandomization"; }
    void encodeWithCoder(BVKeyedArchiver& coder) const override {
      coder.encodeObject({{"5-general", 4},
                          {"5-A", 5},
                          {"3-B", 4000000000ll},
                          {"x-general", 1},
                          {"negative", -1},
                          {"large", 1ll << 33},
                          {"text", "7"}},
                         "storedRandomizationValues");
    }
  };
  EXPECT_EQ(decode(Forged())->storedRandomizationValues(), (BVRandomizationValues{{"5-general", 4}}));
  // A damaged store set in code is drawn again below the bound.
  BVRandomization damaged;
  damaged.setStoredRandomizationValues({{"7-general", 7}});
  EXPECT_LT(damaged.randomInt32Uniform(7), 7u);
}

TEST(StoredRandomization, MirrorAndRotationDrawsShareTheirKey) {
  BVRandomization randomization;
  randomization.setStoredRandomizationValues({{"2-general", 1}, {"4-general", 1}});
  auto moved = [&](bool h, bool v, double rotation) {
    CGAffineTransform t = BVRandomlyMirroredAndRotatedTransform(h, v, false, &randomization, {10, 20}, rotation);
    CGPoint p = CGPointApplyAffineTransform({1, 2}, t);
    return CGPoint{std::round(p.x * 1e4) / 1e4, std::round(p.y * 1e4) / 1e4};  // the turns are 32-bit constants
  };
  // All draws are 1: a half turn about the centre, which both mirrors together undo.
  EXPECT_EQ(moved(false, false, 45), (CGPoint{9, 18}));
  EXPECT_EQ(moved(true, true, 45), (CGPoint{1, 2}));
  EXPECT_EQ(moved(true, false, 0), (CGPoint{9, 2}));
  // A quarter-turn rotation picks from four, and 1 is still the half turn.
  EXPECT_EQ(moved(false, false, 90), (CGPoint{9, 18}));
  EXPECT_EQ(randomization.storedRandomizationValues().size(), 2u);

  // On a bitmap context the same transform is concatenated for its bounds; the quarter turn of a
  // context that is not square becomes a half turn.
  CGContextRef context = CGBitmapContextCreate(nullptr, 10, 20, 8, 0, CGColorSpaceCreateDeviceRGB(),
                                               kCGImageAlphaPremultipliedLast | kCGBitmapByteOrder32Big);
  ASSERT_TRUE(context);
  randomization.setStoredRandomizationValues({{"2-general", 0}, {"4-general", 3}});
  BVRandomlyMirrorAndRotateContext(context, true, false, &randomization, 90);
  CGPoint p = CGPointApplyAffineTransform({1, 2}, CGContextGetCTM(context));
  EXPECT_NEAR(p.x, 1, 1e-5);  // a three-quarter turn (the four-way draw) would have moved it
  EXPECT_NEAR(p.y, 2, 1e-5);
  randomization.setStoredRandomizationValues({{"2-general", 1}});
  BVRandomlyMirrorAndRotateContext(context, true, false, &randomization, 90);
  p = CGPointApplyAffineTransform({1, 2}, CGContextGetCTM(context));
  EXPECT_NEAR(p.x, 1, 1e-5);  // half turn about the centre, then mirrored across: (9, 18) -> (1, 18)
  EXPECT_NEAR(p.y, 18, 1e-5);
}

}  // namespace
}  // namespace brenvia
