#pragma once

#include <cstddef>
#include <functional>

namespace brenvia {

// The library's one pool of worker threads (TBB's). Every parallel piece of work outside the
// renderer's own tiles (encoder strips, batch inputs, completion callbacks) runs here, so the
// process never holds more busy threads than cores and no thread outlives its owner.

// The number of workers the pool uses by default: the machine's cores.
unsigned BVExecutorConcurrency();

// Runs body(0) ... body(count - 1) with at most `concurrency` running at once (0: every core) and
// returns when all have finished. The calling thread takes part.
void BVExecutorParallelFor(size_t count, unsigned concurrency, const std::function<void(size_t)>& body);

// Runs task on the pool later and returns at once. BVExecutorWaitForAsync waits for every task
// started so far; it also runs when the process exits normally.
void BVExecutorAsync(std::function<void()> task);
void BVExecutorWaitForAsync();

}  // namespace brenvia
