#include "filter/mask.h"

#include "filter/filter_registry.h"

#include <mutex>

namespace brenvia {
namespace {

struct MakerSlot {
  std::mutex mutex;
  BVMask::Maker maker;
};

MakerSlot& slot() {
  static MakerSlot made;
  return made;
}

}  // namespace

void BVMask::setMaker(Maker maker) {
  std::lock_guard lock(slot().mutex);
  slot().maker = std::move(maker);
}

std::shared_ptr<BVMask> BVMask::initWithDictionary(const Value& dictionary) {
  BVFilterStartUp();
  Maker maker;
  {
    std::lock_guard lock(slot().mutex);
    maker = slot().maker;
  }
  return maker && dictionary.is_object() && !dictionary.empty() ? maker(dictionary) : nullptr;
}

}  // namespace brenvia
