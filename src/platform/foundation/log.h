#pragma once

#include <functional>
#include <string_view>

namespace brenvia {

// Writes one log line (a newline is added). Lines go to stderr unless a handler is set.
void BVLog(std::string_view line);

using BVLogHandler = std::function<void(std::string_view)>;
// Replaces the destination of log lines; an empty handler restores stderr. Returns the previous one.
BVLogHandler BVSetLogHandler(BVLogHandler handler);

}  // namespace brenvia
