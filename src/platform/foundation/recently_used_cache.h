#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <mutex>
#include <utility>

namespace brenvia {

// The few most recently used values of an expensive computation, shared between threads. A
// value is made under the lock, so the same key is never made twice.
template <class Key, class Value>
class BVRecentlyUsedCache {
 public:
  explicit BVRecentlyUsedCache(size_t capacity) : capacity_(capacity) {}

  template <class Make>
  Value valueFor(const Key& key, Make&& make) {
    std::lock_guard lock(mutex_);
    auto hit = std::find_if(entries_.begin(), entries_.end(), [&](const auto& e) { return e.first == key; });
    if (hit != entries_.end()) {
      entries_.splice(entries_.begin(), entries_, hit);
      return hit->second;
    }
    entries_.emplace_front(key, make());
    if (entries_.size() > capacity_) entries_.pop_back();
    return entries_.front().second;
  }

 private:
  const size_t capacity_;
  std::mutex mutex_;
  std::list<std::pair<Key, Value>> entries_;
};

}  // namespace brenvia
