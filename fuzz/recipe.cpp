// libFuzzer target: bytes read as a JSON recipe, made into filters and prepared as a run would
// prepare them, with stored draws and a slider; the transformations are also applied to every
// dictionary of the recipe, whatever its type.

#include "filter/dynamic_parameters.h"
#include "filter/filter.h"
#include "filter/randomization.h"
#include "platform/foundation/log.h"
#include "processor/image_processor.h"

#include <nlohmann/json.hpp>

using namespace brenvia;

namespace {

void transformEach(const Value& parameters, const Value* entries, std::optional<double> slider,
                   BVRandomization* randomization) {
  if (!entries) return;
  if (!entries->is_array()) {
    (void)BVDictionaryTransformedWithDictionary(parameters, *entries, slider, randomization).dump();
    return;
  }
  for (const Value& entry : *entries) {
    (void)BVDictionaryTransformedWithDictionary(parameters, entry, slider, randomization).dump();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  Value recipe = Value::parse(data, data + size, nullptr, false);
  if (recipe.is_discarded()) return 0;
  if (!recipe.is_array()) recipe = Value::array({recipe});

  auto randomization = std::make_shared<BVRandomization>();
  auto input = BVInput::initWithRandomization(randomization);
  input->slider = size % 3 == 0 ? std::nullopt : std::optional(double(size % 7) / 6.0);
  BVFilterArray filters = BVFilter::filtersWithArray(recipe);
  auto processor = BVImageProcessor::initWithFilters(filters, BVImageProcessorOptions{.input = input});
  for (const auto& filter : filters) {
    filter->setProcessor(processor);
    filter->shouldApply();
    filter->CIFiltersForSize({64, 48});
    (void)filter->parameters().dump();
  }
  for (const Value& parameters : recipe) {
    transformEach(parameters, BVMember(parameters, kBVFilterRandomKey), std::nullopt, randomization.get());
    transformEach(parameters, BVMember(parameters, kBVFilterSliderKey), input->slider, nullptr);
  }
  return 0;
}
