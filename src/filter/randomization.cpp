#include "filter/randomization.h"

#include "platform/foundation/access_queue.h"
#include "platform/foundation/log.h"
#include "platform/foundation/once.h"
#include "platform/foundation/random_source.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <cstdio>
#include <limits>
#include <numbers>
#include <set>

namespace brenvia {
namespace {

struct ClassLevelState {
  BVAccessQueue queue{std::string(kBVRandomizationAccessQueueLabel)};
  bool isPaused = false;
  BVRandomizationValues generatedRandomValues;
  std::set<std::string> randomizationContexts;
};

// Made once, on first use; guards the instance stores too.
ClassLevelState& classLevel() {
  static ClassLevelState state;
  return state;
}

std::string addressText(const void* address) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%p", address);
  return buffer;
}

// A word stands for itself, an object for its address, and `none` for no context.
std::string contextText(const BVRandomizationContext& context, const std::string& none) {
  if (const auto* word = std::get_if<std::string>(&context)) return *word;
  if (const auto* object = std::get_if<const void*>(&context)) return addressText(*object);
  return none;
}

// The key of a context in the set of paused ones.
std::string contextKey(const BVRandomizationContext& context) { return contextText(context, addressText(nullptr)); }

// The stored number for key, drawn and stored first when there is none. The caller holds the queue.
// A stored number at or above the bound (from a damaged store) is drawn again, so that a draw always
// indexes within what it was made for.
uint32_t drawThrough(BVRandomizationValues& store, const std::string& key, uint32_t upperBound) {
  auto [it, added] = store.try_emplace(key, 0);
  if (added || (upperBound > 0 && it->second >= upperBound)) it->second = RandomInt32Uniform(upperBound);
  return it->second;
}

// Whether a stored number fits the bound its key names ("<bound>-<context>", the bound as a signed
// 32-bit number).
bool fitsItsKey(const std::string& key, uint32_t number) {
  int32_t bound = 0;
  auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), bound);
  if (error != std::errc() || end == key.data() + key.size() || *end != '-') return false;
  return uint32_t(bound) == 0 || number < uint32_t(bound);
}

// A whole number from 0 to 2^32 - 1, as draws are.
std::optional<uint32_t> storedNumber(const Value& number) {
  constexpr int64_t kLargest = std::numeric_limits<uint32_t>::max();
  if (number.is_number_unsigned()) {
    if (number.get<uint64_t>() <= uint64_t(kLargest)) return number.get<uint32_t>();
  } else if (number.is_number_integer()) {
    if (int64_t n = number.get<int64_t>(); n >= 0 && n <= kLargest) return uint32_t(n);
  }
  return std::nullopt;
}

std::string joined(const std::set<std::string>& words) {
  std::string all;
  for (const auto& word : words) all += (all.empty() ? "" : ", ") + word;
  return all;
}

}  // namespace

std::string BVRandomizationDrawKey(uint32_t upperBound, const BVRandomizationContext& context) {
  return std::to_string(int32_t(upperBound)) + "-" + contextText(context, "general");
}

void BVRandomization::pauseRandomizingInContext(const BVRandomizationContext& context) {
  ClassLevelState& state = classLevel();
  state.queue.barrierSync([&] {
    state.randomizationContexts.insert(contextKey(context));
    state.isPaused = true;
  });
}

void BVRandomization::resumeRandomizingInContext(const BVRandomizationContext& context) {
  ClassLevelState& state = classLevel();
  std::string remaining = state.queue.barrierSync([&] {
    state.randomizationContexts.erase(contextKey(context));
    if (!state.randomizationContexts.empty()) return joined(state.randomizationContexts);
    state.generatedRandomValues.clear();
    state.isPaused = false;
    return std::string();
  });
  if (!remaining.empty()) BVLog("[BVRandomization] Remaining paused for contexts: " + remaining);
}

uint32_t BVRandomization::classRandomInt32Uniform(uint32_t upperBound, const BVRandomizationContext& context) {
  ClassLevelState& state = classLevel();
  return state.queue.barrierSync([&] {
    if (!state.isPaused) return RandomInt32Uniform(upperBound);
    return drawThrough(state.generatedRandomValues, BVRandomizationDrawKey(upperBound, context), upperBound);
  });
}

std::shared_ptr<BVRandomization> BVRandomization::copyCurrentRandomization() {
  ClassLevelState& state = classLevel();
  auto made = std::make_shared<BVRandomization>();
  made->stored_ = state.queue.sync([&] { return state.generatedRandomValues; });
  return made;
}

void BVRandomization::loadRandomization(const BVRandomization& randomization) {
  ClassLevelState& state = classLevel();
  state.queue.barrierSync([&] {
    for (const auto& [key, number] : randomization.stored_) state.generatedRandomValues[key] = number;
  });
}

BVRandomization::BVRandomization(const BVRandomization& other) : stored_(other.storedRandomizationValues()) {}

bool BVRandomization::isEmpty() const {
  return classLevel().queue.sync([&] { return stored_.empty(); });
}

uint32_t BVRandomization::randomInt32Uniform(uint32_t upperBound, const BVRandomizationContext& context) {
  return classLevel().queue.barrierSync(
      [&] { return drawThrough(stored_, BVRandomizationDrawKey(upperBound, context), upperBound); });
}

BVRandomizationValues BVRandomization::storedRandomizationValues() const {
  return classLevel().queue.sync([&] { return stored_; });
}

void BVRandomization::setStoredRandomizationValues(BVRandomizationValues values) {
  classLevel().queue.barrierSync([&] { stored_ = std::move(values); });
}

bool BVRandomization::isEqualToRandomization(const BVRandomization& other) const {
  const BVRandomizationValues mine = storedRandomizationValues(), theirs = other.storedRandomizationValues();
  for (const auto& [key, number] : mine) {
    auto it = theirs.find(key);
    if (it == theirs.end() || it->second != number) return false;
  }
  return true;
}

bool BVRandomization::isEqual(const BVRandomization& other) const {
  return this == &other || other.isEqualToRandomization(*this);
}

size_t BVRandomization::hash() const {
  size_t value = 0;
  for (const auto& [key, number] : storedRandomizationValues()) {
    value = value * 31 + (std::hash<std::string>{}(key) ^ std::hash<uint32_t>{}(number));
  }
  return value;
}

void BVRandomization::encodeWithCoder(BVKeyedArchiver& coder) const {
  Value store = Value::object();
  for (const auto& [key, number] : storedRandomizationValues()) store[key] = number;
  coder.encodeObject(store, "storedRandomizationValues");
}

void BVRandomization::initWithCoder(BVKeyedUnarchiver& coder) {
  Value store = coder.decodeObject("storedRandomizationValues");
  BVRandomizationValues values;
  if (store.is_object()) {
    for (const auto& [key, number] : store.items()) {
      if (auto stored = storedNumber(number); stored && fitsItsKey(key, *stored)) values[key] = *stored;
    }
  }
  setStoredRandomizationValues(std::move(values));
}

void BVRandomization::registerCodingClass() {
  static BVOnce once;
  once([] {
    BVKeyedUnarchiver::registerClass("BVRandomization", [](BVKeyedUnarchiver& coder) -> std::shared_ptr<BVCoding> {
      auto made = std::make_shared<BVRandomization>();
      made->initWithCoder(coder);
      return made;
    });
  });
}

uint32_t BVRandomInt32Uniform(uint32_t upperBound, BVRandomization* randomization,
                              const BVRandomizationContext& context) {
  return randomization ? randomization->randomInt32Uniform(upperBound, context)
                       : BVRandomization::classRandomInt32Uniform(upperBound, context);
}

bool BVShouldApplyWithFrequency(const BVRandomizationContext& context, BVRandomization* randomization,
                                double frequency) {
  if (frequency == 1.0) return true;
  uint32_t r =
      randomization ? randomization->randomInt32Uniform(100) : BVRandomization::classRandomInt32Uniform(100, context);
  return 100.0 - frequency * 100.0 <= double(r);
}

CGAffineTransform BVRandomlyMirroredAndRotatedTransform(bool mirrorHorizontally, bool mirrorVertically,
                                                        bool useClassLevel, BVRandomization* randomization, CGSize size,
                                                        double rotation) {
  auto draw = [&](uint32_t upperBound) {
    if (randomization || useClassLevel) return BVRandomInt32Uniform(upperBound, randomization);
    return RandomInt32Uniform(upperBound);
  };
  // Quarter turns as single-precision constants, as the rotation steps have always been made.
  using std::numbers::pi;
  static constexpr double kTurns[] = {0.0, double(float(pi)), double(float(pi / 2)), double(float(3 * pi / 2))};
  CGAffineTransform transform = CGAffineTransformIdentity;
  if (rotation > 0) {
    uint32_t r = draw(rotation == 90.0 ? 4 : 2);
    transform = CGAffineTransformMakeTranslation(-size.width * 0.5, -size.height * 0.5);
    if (r != 0) transform = CGAffineTransformConcat(transform, CGAffineTransformMakeRotation(kTurns[r]));
    transform =
        CGAffineTransformConcat(transform, CGAffineTransformMakeTranslation(size.width * 0.5, size.height * 0.5));
  }
  uint32_t a = draw(2);
  uint32_t b = draw(2);
  if (a == 1 && mirrorHorizontally) {
    transform = CGAffineTransformConcat(transform, CGAffineTransformMakeScale(-1, 1));
    transform = CGAffineTransformConcat(transform, CGAffineTransformMakeTranslation(size.width, 0));
  }
  if (b == 1 && mirrorVertically) {
    transform = CGAffineTransformConcat(transform, CGAffineTransformMakeScale(1, -1));
    transform = CGAffineTransformConcat(transform, CGAffineTransformMakeTranslation(0, size.height));
  }
  return transform;
}

void BVRandomlyMirrorAndRotateContext(const CGContextRef& context, bool mirrorHorizontally, bool mirrorVertically,
                                      BVRandomization* randomization, double rotation) {
  const CGSize size = CGContextGetClipBoundingBox(context).size;
  if (rotation == 90.0 && size.width != size.height) rotation = 180.0;
  CGContextConcatCTM(context, BVRandomlyMirroredAndRotatedTransform(mirrorHorizontally, mirrorVertically, true,
                                                                    randomization, size, rotation));
}

}  // namespace brenvia
