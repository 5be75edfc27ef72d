#include "platform/foundation/log.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace brenvia {
namespace {

std::mutex& logMutex() {
  static std::mutex m;
  return m;
}

BVLogHandler& handler() {
  static BVLogHandler h;
  return h;
}

}  // namespace

void BVLog(std::string_view line) {
  std::lock_guard lock(logMutex());
  if (handler()) {
    handler()(line);
    return;
  }
  std::string out(line);
  out.push_back('\n');
  std::fwrite(out.data(), 1, out.size(), stderr);
}

BVLogHandler BVSetLogHandler(BVLogHandler h) {
  std::lock_guard lock(logMutex());
  return std::exchange(handler(), std::move(h));
}

}  // namespace brenvia
