#include "recipe_file.h"

#include "platform/foundation/file_reading.h"
#include "platform/foundation/property_list.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <iterator>

namespace brenvia::cli {

std::optional<Value> readRecipe(const std::string& path, std::string& error) {
  std::string bytes;
  if (path == "-") {
    bytes.assign(std::istreambuf_iterator<char>(std::cin), {});
  } else {
    std::optional<std::string> contents = BVReadRegularTextFile(path, kBVMaximumRecipeBytes, error);
    if (!contents) return std::nullopt;
    bytes = std::move(*contents);
  }
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  std::optional<Value> recipe;
  if (BVLooksLikePropertyList(data, bytes.size())) {
    recipe = BVPropertyListRead(data, bytes.size());
    if (!recipe) error = "not a readable property list";
  } else {
    recipe = Value::parse(bytes, nullptr, false);
    if (recipe->is_discarded()) {
      error = "not valid JSON";
      recipe.reset();
    }
  }
  if (recipe && !recipe->is_array()) {
    error = "a recipe is an array of parameter dictionaries";
    recipe.reset();
  }
  return recipe;
}

}  // namespace brenvia::cli
