#include "messages.h"

#include "platform/foundation/log.h"

#include <cstdio>
#include <string>

namespace brenvia::cli {
namespace {

thread_local size_t tLogLines = 0;

}  // namespace

void fail(std::string_view what, std::string_view why) {
  BVLog("brenvia: " + std::string(what) + ": " + std::string(why));
}

void countLogLines() {
  BVSetLogHandler([](std::string_view line) {
    ++tLogLines;
    std::string whole(line);
    whole.push_back('\n');
    std::fwrite(whole.data(), 1, whole.size(), stderr);
  });
}

size_t logLinesOnThisThread() { return tLogLines; }

}  // namespace brenvia::cli
