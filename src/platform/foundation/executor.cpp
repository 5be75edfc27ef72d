#include "platform/foundation/executor.h"

#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <algorithm>

namespace brenvia {
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
    tbb::parallel_for(size_t(0), count, [&](size_t i) { body(i); }, tbb::simple_partitioner());
  });
}

void BVExecutorAsync(std::function<void()> task) {
  AsyncTasks& tasks = asyncTasks();
  tasks.arena.execute([&] { tasks.group.run(std::move(task)); });
}

void BVExecutorWaitForAsync() {
  AsyncTasks& tasks = asyncTasks();
  tasks.arena.execute([&] { tasks.group.wait(); });
}

}  // namespace brenvia
