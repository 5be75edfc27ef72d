#include "platform/foundation/random_source.h"

#include <sys/random.h>

#include <array>
#include <random>

namespace brenvia {
namespace {

std::mt19937 seededGenerator() {
  std::array<uint32_t, std::mt19937::state_size> seed{};
  size_t filled = 0;
  auto* bytes = reinterpret_cast<char*>(seed.data());
  while (filled < sizeof seed) {
    ssize_t got = getrandom(bytes + filled, sizeof seed - filled, 0);
    if (got <= 0) break;
    filled += size_t(got);
  }
  if (filled < sizeof seed) {
    std::random_device device;
    for (auto& word : seed) word = device();
  }
  std::seed_seq sequence(seed.begin(), seed.end());
  return std::mt19937(sequence);
}

}  // namespace

uint32_t RandomInt32Uniform(uint32_t upperBound) {
  if (upperBound < 2) return 0;
  thread_local std::mt19937 generator = seededGenerator();
  // Numbers below 2^32 mod upperBound would make the low results more likely: draw again.
  const uint32_t floor = uint32_t(-upperBound) % upperBound;
  for (;;) {
    uint32_t r = uint32_t(generator());
    if (r >= floor) return r % upperBound;
  }
}

}  // namespace brenvia
