#include "commands.h"
#include "messages.h"

#include "platform/imageio/image_io.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

namespace {

// A run stopped by the user or the system leaves no temporary file beside its outputs.
void stopCleanly(int signal) {
  brenvia::imageio::AtomicFileWriter::removeOpenTemporaryFiles();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

int main(int argc, char** argv) {
  for (int stop : {SIGINT, SIGTERM, SIGHUP}) std::signal(stop, stopCleanly);
  brenvia::cli::countLogLines();
  CLI::App app{"Brenvia: filter recipes applied to pictures"};
  app.require_subcommand(1);
  brenvia::cli::addRenderCommand(app);
  brenvia::cli::addInfoCommand(app);
  brenvia::cli::addCurveCommand(app);
  brenvia::cli::addOpsCommand(app);
  brenvia::cli::addFiltersCommand(app);
  brenvia::cli::addThumbnailCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    std::fprintf(stderr, "brenvia: %s\nRun with --help for more information.\n", e.what());
    return 2;
  } catch (const std::bad_alloc&) {
    std::fputs("brenvia: out of memory\n", stderr);
    return 1;
  } catch (const std::exception& e) {
    // Commands catch what concerns one input; anything else still ends with one line, not an abort.
    std::fprintf(stderr, "brenvia: %s\n", e.what());
    return 1;
  }
  return brenvia::cli::exitStatus();
}
