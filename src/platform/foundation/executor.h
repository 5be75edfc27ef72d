#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace brenvia {

// The library's one pool of worker threads (TBB's). Every parallel piece of work outside the
// renderer's own tiles (encoder strips, batch inputs, background decodes, completion callbacks)
// runs here, so the process never holds more busy threads than cores and no thread outlives its
// owner.

// The number of workers the pool uses by default: the machine's cores.
unsigned BVExecutorConcurrency();

// Runs body(0) ... body(count - 1) with at most `concurrency` running at once (0: every core) and
// returns when all have finished. The calling thread takes part.
void BVExecutorParallelFor(size_t count, unsigned concurrency, const std::function<void(size_t)>& body);

namespace detail {
class AsyncTask;
}

// A task started with BVExecutorAsync, to wait for on its own.
class BVAsyncTask {
 public:
  BVAsyncTask() = default;
  explicit BVAsyncTask(std::shared_ptr<detail::AsyncTask> task) : task_(std::move(task)) {}
  // Returns once the task has run. A task no worker has started yet runs on the calling thread
  // instead, so waiting never depends on a free worker: the pool may be busy with work that is
  // itself waiting for this task.
  void wait() const;
  // Runs the task on the calling thread if no worker has started it yet; returns at once otherwise.
  void runIfPending() const;

 private:
  std::shared_ptr<detail::AsyncTask> task_;
};

// Runs task on the pool later and returns at once. BVExecutorWaitForAsync waits for every task
// started so far; it also runs when the process exits normally.
BVAsyncTask BVExecutorAsync(std::function<void()> task);
void BVExecutorWaitForAsync();

}  // namespace brenvia
