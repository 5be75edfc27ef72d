#pragma once

#include <string_view>

// Internal invariants: a broken one is a programming error, never bad data (bad data gets a log
// line). BV_CHECK is on in every build, release included: the checks sit where graphs are planned
// and stages set up, not in per-pixel loops, so they cost a compare and a predicted branch. A failed
// check prints the file, the line and the condition (and the message, if any) to stderr and aborts.
#define BV_CHECK(condition)                                                               \
  do {                                                                                    \
    if (!(condition)) [[unlikely]]                                                        \
      ::brenvia::detail::checkFailed(__FILE__, __LINE__, #condition, std::string_view{}); \
  } while (false)

#define BV_CHECK_MSG(condition, message)                                       \
  do {                                                                         \
    if (!(condition)) [[unlikely]]                                             \
      ::brenvia::detail::checkFailed(__FILE__, __LINE__, #condition, message); \
  } while (false)

namespace brenvia::detail {

[[noreturn]] void checkFailed(const char* file, int line, const char* condition, std::string_view message);

}  // namespace brenvia::detail
