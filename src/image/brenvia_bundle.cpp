#include "image/brenvia_bundle.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

bool isFolder(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

std::string findResourceFolder() {
  if (const char* named = std::getenv("BRENVIA_RESOURCES"); named && *named) return named;
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  if (!error) {
    if (auto beside = BVBundle::installedFolderBeside(executable.string())) return *beside;
  }
  if (isFolder(BRENVIA_INSTALLED_RESOURCES)) return BRENVIA_INSTALLED_RESOURCES;
  return BRENVIA_SOURCE_RESOURCES;
}

}  // namespace

const BVBundle& BVBundle::brenviaBundle() {
  static const BVBundle bundle(findResourceFolder());
  return bundle;
}

std::optional<std::string> BVBundle::pathForResource(std::string_view name, std::string_view extension) const {
  std::string file(name);
  if (!extension.empty()) file.append(".").append(extension);
  const fs::path path = fs::path(resourcePath_) / file;
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  return path.string();
}

std::optional<std::string> BVBundle::installedFolderBeside(const std::string& executable) {
  const fs::path folder = fs::path(executable).parent_path();
  if (folder.filename() != "bin") return std::nullopt;
  const fs::path installed = folder.parent_path() / "share" / "brenvia";
  if (!isFolder(installed)) return std::nullopt;
  return installed.string();
}

}  // namespace brenvia
