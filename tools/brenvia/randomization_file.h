#pragma once

#include "filter/randomization.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace brenvia::cli {

// The stored draws of `render --randomization FILE`: a property list dictionary from the file name
// of each input picture to the keyed archive (data) of that picture's randomization. Rendering the
// same pictures again with the file repeats their draws; pictures the file does not name yet get
// new draws, which are added to it.
class RandomizationFile {
 public:
  // The stored draws of the file, none when it does not exist; nothing (with error set) when it
  // cannot be read or is not such a dictionary.
  static std::optional<RandomizationFile> open(const std::string& path, std::string& error);

  // The randomization of an input picture, by its file name; a new empty one when there is none.
  std::shared_ptr<BVRandomization> forInput(const std::string& inputPath);
  // Writes the file (through a temporary name) when draws were added since it was opened; false
  // with error set when that fails.
  bool saveIfChanged(std::string& error) const;

 private:
  explicit RandomizationFile(std::string path) : path_(std::move(path)) {}

  std::string path_;
  std::map<std::string, std::shared_ptr<BVRandomization>> byName_;
  std::map<std::string, BVRandomizationValues> opened_;
};

}  // namespace brenvia::cli
