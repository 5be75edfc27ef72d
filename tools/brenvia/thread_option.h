#pragma once

namespace CLI {
class App;
}

namespace brenvia::cli {

// The most threads a run takes: far more than any machine it runs on has cores, far fewer than
// would exhaust memory with their stacks.
inline constexpr int kMaximumThreads = 256;

// --threads N, 1 to kMaximumThreads; `threads` stays 0 (every core) when it is not given.
void addThreadsOption(CLI::App& command, int& threads);

}  // namespace brenvia::cli
