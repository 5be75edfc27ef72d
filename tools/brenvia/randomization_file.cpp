#include "randomization_file.h"

#include "platform/foundation/file_reading.h"
#include "platform/foundation/property_list.h"
#include "platform/imageio/image_io.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace brenvia::cli {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<BVRandomization> unarchived(const Value& entry) {
  const Value* data = BVMember(entry, "$data");
  std::optional<std::vector<uint8_t>> bytes =
      data && data->is_string() ? BVBase64Decode(data->get<std::string>()) : std::nullopt;
  if (!bytes) return nullptr;
  BVRandomization::registerCodingClass();
  return BVKeyedUnarchiver::unarchivedObjectOfClass<BVRandomization>(bytes->data(), bytes->size());
}

Value archived(const BVRandomization& randomization) {
  std::vector<uint8_t> bytes = BVKeyedArchiver::archivedData(randomization);
  return {{"$data", BVBase64Encode(bytes.data(), bytes.size())}};
}

// An exclusive advisory lock on a folder, held while the object lives. Files in the folder are
// replaced by renaming, so the folder, not the file, is what concurrent runs can share a lock on.
class FolderLock {
 public:
  explicit FolderLock(const fs::path& folder)
      : fd_(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

// The dictionary the file holds now, or an empty one when it is missing or unreadable.
Value storedDictionary(const std::string& path) {
  std::string error;
  const auto bytes = BVReadRegularFile(path, kBVMaximumRecipeBytes, error);
  std::optional<Value> stored = bytes ? BVPropertyListRead(bytes->data(), bytes->size()) : std::nullopt;
  return stored && stored->is_object() ? std::move(*stored) : Value::object();
}

}  // namespace

std::optional<RandomizationFile> RandomizationFile::open(const std::string& path, std::string& error) {
  RandomizationFile file(path);
  if (std::error_code unknown; !fs::exists(path, unknown) && !unknown) return file;
  const std::optional<std::vector<uint8_t>> bytes = BVReadRegularFile(path, kBVMaximumRecipeBytes, error);
  if (!bytes) return std::nullopt;
  std::optional<Value> stored = BVPropertyListRead(bytes->data(), bytes->size());
  if (!stored || !stored->is_object()) {
    error = "not a randomization file (a property list dictionary of stored draws)";
    return std::nullopt;
  }
  for (const auto& [name, entry] : stored->items()) {
    std::shared_ptr<BVRandomization> randomization = unarchived(entry);
    if (!randomization) {
      error = "the stored draws of `" + name + "` are not a keyed archive of a randomization";
      return std::nullopt;
    }
    file.opened_[name] = randomization->storedRandomizationValues();
    file.byName_[name] = std::move(randomization);
  }
  return file;
}

std::shared_ptr<BVRandomization> RandomizationFile::forInput(const std::string& inputPath) {
  std::shared_ptr<BVRandomization>& randomization = byName_[fs::path(inputPath).filename().string()];
  if (!randomization) randomization = std::make_shared<BVRandomization>();
  return randomization;
}

bool RandomizationFile::saveIfChanged(std::string& error) const {
  std::vector<std::string> changed;
  for (const auto& [name, randomization] : byName_) {
    auto opened = opened_.find(name);
    if (opened == opened_.end() || opened->second != randomization->storedRandomizationValues())
      changed.push_back(name);
  }
  if (changed.empty()) return true;
  // Other runs may have added their pictures since the file was opened: under the lock, this run's
  // entries go into the file as it is now.
  FolderLock lock(fs::path(path_).parent_path());
  Value stored = storedDictionary(path_);
  for (const std::string& name : changed) stored[name] = archived(*byName_.at(name));
  return imageio::writeFileAtomically(path_, BVPropertyListWrite(stored, BVPropertyListFormat::XML), &error);
}

}  // namespace brenvia::cli
