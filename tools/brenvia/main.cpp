#include "commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>

int main(int argc, char** argv) {
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
    return app.exit(e) == 0 ? 0 : 2;
  }
  return brenvia::cli::exitStatus();
}
