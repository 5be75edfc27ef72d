#include "messages.h"

#include "platform/foundation/log.h"

#include <cstdio>
#include <string>

namespace brenvia::cli {
namespace {

thread_local size_t tLogLines = 0;
thread_local std::string tLastLine;

}  // namespace

void fail(std::string_view what, std::string_view why) {
  BVLog("brenvia: " + std::string(what) + ": " + std::string(why));
}

void countLogLines() {
  BVSetLogHandler([](std::string_view line) {
    ++tLogLines;
    tLastLine = line;
    std::string whole(line);
    whole.push_back('\n');
    std::fwrite(whole.data(), 1, whole.size(), stderr);
  });
}

size_t logLinesOnThisThread() { return tLogLines; }

std::string readFailureOnThisThread(std::string_view path) {
  const std::string prefix = "[ImageIO] Could not read `" + std::string(path) + "`: ";
  return tLastLine.starts_with(prefix) ? tLastLine.substr(prefix.size()) : std::string();
}

}  // namespace brenvia::cli
