#include "thread_option.h"

#include <CLI/CLI.hpp>

#include <string>

namespace brenvia::cli {

void addThreadsOption(CLI::App& command, int& threads) {
  const std::string range = "1 to " + std::to_string(kMaximumThreads);
  command.add_option("--threads", threads, "Threads to use, " + range + " (default: every core)")
      ->check(CLI::Validator(
          [range](std::string& text) {
            int value = 0;
            return CLI::detail::lexical_cast(text, value) && value >= 1 && value <= kMaximumThreads
                       ? std::string()
                       : "expected " + range;
          },
          "N"));
}

}  // namespace brenvia::cli
