#pragma once

#include <mutex>
#include <utility>

namespace brenvia {

// Runs the body once per guard, whatever the number of callers and threads.
class BVOnce {
 public:
  template <class F>
  void operator()(F&& body) {
    std::call_once(flag_, std::forward<F>(body));
  }

 private:
  std::once_flag flag_;
};

}  // namespace brenvia
