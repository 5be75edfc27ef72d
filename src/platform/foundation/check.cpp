#include "platform/foundation/check.h"

#include <cstdio>
#include <cstdlib>

namespace brenvia::detail {

// Writes straight to stderr, past any log handler: the process is about to stop, and a handler
// may be what broke.
void checkFailed(const char* file, int line, const char* condition, std::string_view message) {
  std::fprintf(stderr, "%s:%d: check failed: %s", file, line, condition);
  if (!message.empty()) std::fprintf(stderr, " (%.*s)", int(message.size()), message.data());
  std::fputc('\n', stderr);
  std::fflush(stderr);
  std::abort();
}

}  // namespace brenvia::detail
