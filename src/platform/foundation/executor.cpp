#include "platform/foundation/executor.h"

#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace brenvia {
namespace detail {

// Runs once, on whichever thread asks first: a pool worker or a thread waiting for it.
class AsyncTask {
 public:
  explicit AsyncTask(std::function<void()> body) : body_(std::move(body)) {}

  // Runs the task unless it has started already.
  void runIfPending() {
    {
      std::lock_guard lock(mutex_);
      if (state_ != State::Pending) return;
      state_ = State::Running;
    }
    body_();
    body_ = nullptr;  // releases what the task holds before anyone learns that it is done
    std::lock_guard lock(mutex_);
    state_ = State::Done;
    done_.notify_all();
  }

  void wait() {
    runIfPending();
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&] { return state_ == State::Done; });
  }

 private:
  enum class State { Pending, Running, Done };
  std::function<void()> body_;
  std::mutex mutex_;
  std::condition_variable done_;
  State state_ = State::Pending;
};

}  // namespace detail

namespace {

// Tasks started by BVExecutorAsync; waited for before static destruction ends the pool.
struct AsyncTasks {
  tbb::task_arena arena{tbb::task_arena::automatic};
  tbb::task_group group;
  ~AsyncTasks() {
    arena.execute([this] { group.wait(); });
  }
};

AsyncTasks& asyncTasks() {
  static AsyncTasks tasks;
  return tasks;
}

}  // namespace

unsigned BVExecutorConcurrency() { return unsigned(std::max(1, tbb::info::default_concurrency())); }

void BVExecutorParallelFor(size_t count, unsigned concurrency, const std::function<void(size_t)>& body) {
  if (count == 0) return;
  const unsigned workers = std::min<size_t>(concurrency ? concurrency : BVExecutorConcurrency(), count);
  if (workers <= 1) {
    for (size_t i = 0; i < count; ++i) body(i);
    return;
  }
  tbb::task_arena arena(int(workers), 1);
  arena.execute([&] {
    tbb::parallel_for(
        size_t(0), count, [&](size_t i) { body(i); }, tbb::simple_partitioner());
  });
}

void BVAsyncTask::wait() const {
  if (task_) task_->wait();
}

void BVAsyncTask::runIfPending() const {
  if (task_) task_->runIfPending();
}

BVAsyncTask BVExecutorAsync(std::function<void()> task) {
  auto shared = std::make_shared<detail::AsyncTask>(std::move(task));
  AsyncTasks& tasks = asyncTasks();
  tasks.arena.execute([&] { tasks.group.run([shared] { shared->runIfPending(); }); });
  return BVAsyncTask(std::move(shared));
}

void BVExecutorWaitForAsync() {
  AsyncTasks& tasks = asyncTasks();
  tasks.arena.execute([&] { tasks.group.wait(); });
}

}  // namespace brenvia
