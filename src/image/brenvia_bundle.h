#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brenvia {

// The library's resource folder.
class BVBundle {
 public:
  // Found once, on first use: the folder named by BRENVIA_RESOURCES, else the installed folder
  // beside the running program, else the installed folder of the configured prefix, else the
  // source tree's resources/.
  static const BVBundle& brenviaBundle();

  std::string_view bundleIdentifier() const { return "com.ovalion.Brenvia"; }
  const std::string& resourcePath() const { return resourcePath_; }
  // The path of "<name>.<extension>" in the folder (no dot without an extension), or nothing when
  // there is no such file.
  std::optional<std::string> pathForResource(std::string_view name, std::string_view extension) const;

  // <prefix>/share/brenvia for a program in <prefix>/bin, when that folder exists.
  static std::optional<std::string> installedFolderBeside(const std::string& executable);

 private:
  explicit BVBundle(std::string resourcePath) : resourcePath_(std::move(resourcePath)) {}
  std::string resourcePath_;
};

}  // namespace brenvia
