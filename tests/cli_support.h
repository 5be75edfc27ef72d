#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace brenvia::test {

struct CommandResult {
  int status = -1;
  std::string out;  // standard output and standard error together
};

// Runs the command-line tool with the given arguments through the shell.
inline CommandResult runCli(const std::string& arguments) {
  CommandResult result;
  std::string command = std::string(BRENVIA_CLI) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  std::array<char, 4096> buffer;
  size_t n;
  while ((n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0) result.out.append(buffer.data(), n);
  int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace brenvia::test
