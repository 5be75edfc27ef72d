#pragma once

#include <string_view>

namespace brenvia::cli {

// "brenvia: <what>: <why>" on standard error, written whole through the library's log, so that lines
// of inputs failing at once on several threads never interleave with each other or with log lines.
void fail(std::string_view what, std::string_view why);

}  // namespace brenvia::cli
