#pragma once

#include "platform/foundation/keyed_archive.h"
#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_context.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>

namespace brenvia {

// What a draw is made under: nothing (the word "general"), a word, or an object known by its address.
using BVRandomizationContext = std::variant<std::monostate, std::string, const void*>;
// Draw key ("<bound>-<context>") to the number drawn.
using BVRandomizationValues = std::map<std::string, uint32_t>;

inline constexpr std::string_view kBVRandomizationAccessQueueLabel = "com.ovalion.Brenvia.BVRandomizationAccessQueue";

// Repeatable random numbers without a seed: a draw is known by its upper bound and context, and
// within a repeatable span every draw with the same key gives the same number.
//
// The class level serves the whole process: while any context is paused, draws are kept under their
// keys and repeated; resuming the last paused context forgets them. An instance keeps its own
// store of draws, which travels with an edit, and repeats them whether or not anything is paused.
// All state, class level and instance stores, is guarded by one access queue.
class BVRandomization : public BVCoding {
 public:
  // --- Class level ---
  static void pauseRandomizingInContext(const BVRandomizationContext& context = {});
  // Ends the pause of the context; the kept draws go when no paused context remains.
  static void resumeRandomizingInContext(const BVRandomizationContext& context = {});
  // The class-level draw: a new number when nothing is paused, else the kept one for its key.
  static uint32_t classRandomInt32Uniform(uint32_t upperBound, const BVRandomizationContext& context = {});
  // A new randomization holding the draws kept in the current paused span.
  static std::shared_ptr<BVRandomization> copyCurrentRandomization();
  // Adds the stored draws to the kept ones, replacing those with equal keys.
  static void loadRandomization(const BVRandomization& randomization);

  // --- Instance ---
  BVRandomization() = default;
  BVRandomization(const BVRandomization& other);
  BVRandomization& operator=(const BVRandomization&) = delete;

  bool isEmpty() const;
  // The stored number for the draw key, drawn and stored first when there is none (or when the stored
  // one is not below the bound).
  uint32_t randomInt32Uniform(uint32_t upperBound, const BVRandomizationContext& context = {});
  BVRandomizationValues storedRandomizationValues() const;
  void setStoredRandomizationValues(BVRandomizationValues values);

  // True when every draw stored here has the same number in other (an empty store matches anything).
  bool isEqualToRandomization(const BVRandomization& other) const;
  // The same object, or other.isEqualToRandomization(*this).
  bool isEqual(const BVRandomization& other) const;
  size_t hash() const;
  std::shared_ptr<BVRandomization> copy() const { return std::make_shared<BVRandomization>(*this); }

  // Keyed coding: the store under "storedRandomizationValues".
  std::string className() const override { return "BVRandomization"; }
  void encodeWithCoder(BVKeyedArchiver& coder) const override;
  // A missing or wrongly typed store reads as an empty one; entries that are no 32-bit unsigned
  // number, or not below the bound their key names, are left out.
  void initWithCoder(BVKeyedUnarchiver& coder);
  // Makes the keyed unarchiver know this class.
  static void registerCodingClass();

 private:
  BVRandomizationValues stored_;
};

// The draw key of an upper bound (as a signed 32-bit number) and a context.
std::string BVRandomizationDrawKey(uint32_t upperBound, const BVRandomizationContext& context);

// A draw on the randomization when there is one, else through the class level.
uint32_t BVRandomInt32Uniform(uint32_t upperBound, BVRandomization* randomization,
                              const BVRandomizationContext& context = {});

// Whether something with this frequency (1.0: always, 0: never) applies now. Frequency 1.0 draws
// nothing; otherwise a number below 100 is drawn (on the randomization without context when there
// is one) and the answer is 100 - 100 * frequency <= number.
bool BVShouldApplyWithFrequency(const BVRandomizationContext& context, BVRandomization* randomization,
                                double frequency);

// A random quarter or half turn about the centre of a rectangle of the given size, followed by
// random mirroring. The rotation draw is made when rotation is above 0 (4 choices for exactly 90
// degrees, else 2); the two mirror draws are always made, and apply only where their flag is set.
// Draws come from the randomization when there is one, else from the class level when
// useClassLevel is set, else straight from the system.
CGAffineTransform BVRandomlyMirroredAndRotatedTransform(bool mirrorHorizontally, bool mirrorVertically,
                                                        bool useClassLevel, BVRandomization* randomization, CGSize size,
                                                        double rotation);
// Concatenates to the context the transform above for its clip bounds, with class-level draws. A
// quarter turn of a context that is not square becomes a half turn, so the picture still fills it.
void BVRandomlyMirrorAndRotateContext(const CGContextRef& context, bool mirrorHorizontally, bool mirrorVertically,
                                      BVRandomization* randomization, double rotation);

}  // namespace brenvia
