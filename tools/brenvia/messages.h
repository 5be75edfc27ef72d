#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brenvia::cli {

// "brenvia: <what>: <why>" on standard error, written whole through the library's log, so that lines
// of inputs failing at once on several threads never interleave with each other or with log lines.
void fail(std::string_view what, std::string_view why);

// Sends the library's log lines to standard error, counting them per thread.
void countLogLines();
// The lines logged on the calling thread so far, for telling whether a run had problems.
size_t logLinesOnThisThread();
// Why the library could not read `path`, from its last log line on the calling thread
// ("[ImageIO] Could not read `path`: why"); empty when it gave none.
std::string readFailureOnThisThread(std::string_view path);

}  // namespace brenvia::cli
