#pragma once

namespace CLI {
class App;
}

namespace brenvia::cli {

// Each command registers itself on the application and records its exit status when it runs.
void addOpsCommand(CLI::App& app);
void addFiltersCommand(CLI::App& app);
void addRenderCommand(CLI::App& app);
void addInfoCommand(CLI::App& app);
void addCurveCommand(CLI::App& app);
void addThumbnailCommand(CLI::App& app);

int exitStatus();
void setExitStatus(int status);

}  // namespace brenvia::cli
