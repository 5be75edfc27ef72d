#pragma once

#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>

namespace brenvia {

// Guards shared state the way a concurrent queue does: blocks run on the caller's thread, shared
// blocks may run together, and an exclusive (barrier) block runs alone. The caller waits for each.
class BVAccessQueue {
 public:
  explicit BVAccessQueue(std::string label) : label_(std::move(label)) {}
  BVAccessQueue(const BVAccessQueue&) = delete;
  BVAccessQueue& operator=(const BVAccessQueue&) = delete;

  const std::string& label() const { return label_; }

  template <class F>
  decltype(auto) sync(F&& body) const {
    std::shared_lock lock(mutex_);
    return std::forward<F>(body)();
  }

  template <class F>
  decltype(auto) barrierSync(F&& body) {
    std::unique_lock lock(mutex_);
    return std::forward<F>(body)();
  }

 private:
  std::string label_;
  mutable std::shared_mutex mutex_;
};

}  // namespace brenvia
