#include "randomization_file.h"

#include "platform/foundation/file_reading.h"
#include "platform/foundation/property_list.h"
#include "platform/imageio/image_io.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>

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
  Value stored = Value::object();
  bool changed = false;
  for (const auto& [name, randomization] : byName_) {
    BVRandomizationValues values = randomization->storedRandomizationValues();
    auto opened = opened_.find(name);
    changed = changed || opened == opened_.end() || opened->second != values;
    stored[name] = archived(*randomization);
  }
  if (!changed) return true;
  return imageio::writeFileAtomically(path_, BVPropertyListWrite(stored, BVPropertyListFormat::XML), &error);
}

}  // namespace brenvia::cli
