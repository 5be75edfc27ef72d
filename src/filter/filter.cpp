#include "filter/filter.h"

#include "filter/dynamic_parameters.h"
#include "filter/input.h"
#include "filter/processing.h"
#include "filter/randomization.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"
#include "platform/foundation/once.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>

namespace brenvia {
namespace {

void registerDecoder(std::string_view name, std::function<BVFilterRef()> make) {
  BVKeyedUnarchiver::registerClass(std::string(name), [make](BVKeyedUnarchiver& coder) -> std::shared_ptr<BVCoding> {
    BVFilterRef made = make();
    made->initWithCoder(coder);
    return made;
  });
}

Value optionalString(const std::optional<std::string>& s) { return s ? Value(*s) : Value(); }

std::optional<std::string> stringOrNil(const Value& v) {
  if (v.is_string()) return v.get<std::string>();
  return std::nullopt;
}

std::shared_ptr<BVInput> inputOf(const std::shared_ptr<BVProcessing>& processor) {
  return processor ? processor->input() : nullptr;
}

BVRandomization* randomizationOf(const std::shared_ptr<BVInput>& input) {
  return input ? input->randomization.get() : nullptr;
}

// The parameters with each transformation of entries (one dictionary or an array of them) applied
// in order; entries of another kind are logged and change nothing.
Value transformedParameters(const Value& parameters, const Value& entries, std::optional<double> position,
                            BVRandomization* randomization) {
  if (entries.is_object()) return BVDictionaryTransformedWithDictionary(parameters, entries, position, randomization);
  if (!entries.is_array()) {
    BVLog(
        "[BVFilter] Transformations must be a dictionary or an array of "
        "dictionaries, not " +
        entries.dump());
    return parameters;
  }
  Value transformed = parameters;
  for (const Value& entry : entries) {
    transformed = BVDictionaryTransformedWithDictionary(transformed, entry, position, randomization);
  }
  return transformed;
}

// Recipe entries are a few levels deep; anything much deeper is hostile, and copying it would
// recurse once per level.
constexpr size_t kMaximumRecipeDepth = 64;

// Whether a value holds containers nested deeper than `limit`, measured without recursion.
bool nestedDeeperThan(const Value& value, size_t limit) {
  std::vector<std::pair<const Value*, size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    const auto [current, depth] = pending.back();
    pending.pop_back();
    if (!current->is_structured()) continue;
    if (depth >= limit) return true;
    for (const Value& child : *current) pending.emplace_back(&child, depth + 1);
  }
  return false;
}

}  // namespace

const BVParameterTable<BVFilter::Settings>& BVFilter::parameterTable() {
  static const BVParameterTable<Settings> table{
      {kBVFilterEnabledKey, &Settings::enabled, "whether the filter applies"},
      {kBVFilterOpaqueKey, &Settings::opaque, "the filter hides everything before it, where a run starts"},
      {kBVFilterFilterFrequencyKey, &Settings::filterFrequency, "probability that the filter applies to a picture",
       BVParameterRange{0, 1}, BVParameterRead::Always},
      {kBVFilterOptionalDuringLivePreviewKey, &Settings::optionalDuringLivePreview,
       "left out of a live preview that runs late"},
      {"skipCIFilter", &Settings::skipCIFilter, "the filter only draws on the bitmap road"},
      {kBVFilterTagsKey, BVParameterKind::Array, "names that --disable-tag and alpha sliders refer to"},
      {kBVFilterRandomKey, BVParameterKind::Array, "random draws of other keys: [{keyPath, minimum, maximum}, ...]"},
      {kBVFilterSliderKey, BVParameterKind::Dictionary, "keys the slider moves: {keyPath, minimum, maximum}"},
  };
  return table;
}

BVFilterArray BVFilter::filtersWithArray(const Value& array, const std::optional<std::string>& imageSearchPath,
                                         const std::optional<std::string>& imagePrefix,
                                         const std::vector<std::string>& tagged) {
  BVFilterArray filters;
  if (!array.is_array()) return filters;
  filters.reserve(array.size());
  // An entry of unknown type has been logged by the single-filter factory and is left out.
  for (const Value& parameters : array) {
    if (BVFilterRef made = filterWithParameters(parameters, imageSearchPath, imagePrefix, tagged)) {
      filters.push_back(std::move(made));
    }
  }
  return filters;
}

BVFilterRef BVFilter::filterWithParameters(const Value& parameters, const std::optional<std::string>& imageSearchPath,
                                           const std::optional<std::string>& imagePrefix,
                                           const std::vector<std::string>& tagged) {
  if (!parameters.is_object()) {
    BVLog("[BVFilter] A recipe entry must be a dictionary, not " + std::string(parameters.type_name()));
    return nullptr;
  }
  if (nestedDeeperThan(parameters, kMaximumRecipeDepth)) {
    BVLog("[BVFilter] A recipe entry is nested more than " + std::to_string(kMaximumRecipeDepth) +
          " levels deep; it is passed over.");
    return nullptr;
  }
  const Value* type = BVMember(parameters, kBVFilterTypeKey);
  const BVFilterClass* filterClass =
      type && type->is_string() ? BVFilterClassForType(type->get<std::string>()) : nullptr;
  if (!filterClass) {
    std::string shown = !type || type->is_null() ? "(null)"
                        : type->is_string()      ? type->get<std::string>()
                                                 : type->dump();
    BVLog("[BVFilter] Unable to initialize filter subclass for `" + shown + "`");
    return nullptr;
  }
  BVFilterRef made = filterClass->make();
  made->initWithParameters(parameters, imageSearchPath, imagePrefix, tagged);
  return made;
}

void BVFilter::registerCodingClasses() {
  static BVOnce once;
  once([] {
    registerDecoder(kClassName, [] { return std::make_shared<BVFilter>(); });
    for (const BVFilterClass* filterClass : BVFilterClasses()) registerDecoder(filterClass->name, filterClass->make);
  });
}

CIFilterArray BVFilter::CIFiltersForBVFilters(const BVFilterArray& filters, CGSize size) {
  CIFilterArray all;
  for (const auto& filter : filters) {
    if (!filter) continue;
    filter->prepareToApply();
    CIFilterArray own = filter->CIFiltersForSize(size);
    all.insert(all.end(), own.begin(), own.end());
  }
  return all;
}

void BVFilter::prepareToProcessFilters(const BVFilterArray& filters, CGSize size) {
  for (const auto& filter : filters) {
    if (filter) filter->prepareToProcessAtSize(size);
  }
}

void BVFilter::clearProcessingCachesForFilters(const BVFilterArray& filters) {
  for (const auto& filter : filters) {
    if (filter) filter->clearProcessingCaches();
  }
}

uint64_t BVFilter::processingCachesByteSizeForFilters(const BVFilterArray& filters) {
  uint64_t total = 0;
  for (const auto& filter : filters) {
    if (filter) total += filter->processingCachesByteSize();
  }
  return total;
}

void BVFilter::initWithParameters(const Value& parameters) {
  BVFilterStartUp();
  resetSettings();
  setParameters(parameters);
}

void BVFilter::initWithParameters(const Value& parameters, const std::optional<std::string>& imageSearchPath,
                                  const std::optional<std::string>& imagePrefix, const std::vector<std::string>& tags) {
  initWithParameters(parameters);
  // There is no application bundle to fall back on: a missing search path stays missing.
  imageSearchPath_ = imageSearchPath;
  imagePrefix_ = imagePrefix;
  additionalTags_ = tags;
}

void BVFilter::initWithCoder(BVKeyedUnarchiver& coder) {
  Value parameters = coder.decodeObject("parameters");
  initWithParameters(parameters, stringOrNil(coder.decodeObject("imageSearchPath")),
                     stringOrNil(coder.decodeObject("imagePrefix")));
}

void BVFilter::encodeWithCoder(BVKeyedArchiver& coder) const {
  coder.encodeObject(parameters_, "parameters");
  coder.encodeObject(optionalString(imageSearchPath_), "imageSearchPath");
  coder.encodeObject(optionalString(imagePrefix_), "imagePrefix");
}

BVFilterRef BVFilter::copy() const {
  BVFilterRef made = makeBlank();
  made->initWithParameters(parameters_, imageSearchPath_, imagePrefix_, tags());
  copySettingsTo(*made);
  made->setEnabled(isEnabled());
  return made;
}

std::string BVFilter::description() const {
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
  std::string settings;
  describeSettings(settings);
  return "<" + className() + ": " + address + "; " + settings + ">";
}

std::vector<BVParameterInfo> BVFilter::parameterList() const {
  std::vector<BVParameterInfo> list;
  listParameters(list);
  return list;
}

void BVFilter::describeSettings(std::string& text) const { BVDescribeParameters(parameterTable(), base_, text); }

void BVFilter::listParameters(std::vector<BVParameterInfo>& list) const { BVListParameters(parameterTable(), list); }

BVParameterReader BVFilter::reader(bool reports) const { return {className(), reports}; }

void BVFilter::setParameters(const Value& parameters) {
  parameters_ = parameters;
  prepared_ = parameters;
  readParameters(parameters, reader());
}

void BVFilter::readParameters(const Value& parameters, const BVParameterReader& reader) {
  BVReadParameters(parameterTable(), base_, parameters, reader);
  supportsCIFilter_ = !base_.skipCIFilter;
  const Value* tags = BVMember(parameters, kBVFilterTagsKey);
  if (tags && tags->is_array() && !tags->empty()) {
    parameterTags_ = additionalTags_;
    for (const Value& tag : *tags) {
      if (tag.is_string()) parameterTags_.push_back(tag.get<std::string>());
    }
  }
}

bool BVFilter::isEnabled() const {
  std::shared_ptr<BVInput> input = inputOf(processor());
  if (!input || !input->disableTags || input->disableTags->empty()) return base_.enabled;
  const std::vector<std::string>& disabled = *input->disableTags;
  for (const std::string& tag : tags()) {
    if (std::find(disabled.begin(), disabled.end(), tag) != disabled.end()) return false;
  }
  return base_.enabled;
}

std::vector<std::string> BVFilter::tags() const {
  if (additionalTags_.empty()) return parameterTags_;
  std::vector<std::string> all = additionalTags_;
  all.insert(all.end(), parameterTags_.begin(), parameterTags_.end());
  return all;
}

CIFilterArray BVFilter::CIFiltersForSize(CGSize) { return {}; }

bool BVFilter::shouldApply() {
  return BVShouldApplyWithFrequency({}, randomizationOf(inputOf(processor())), base_.filterFrequency);
}

// Random values first, then the slider, so that a slider overrides a random value at the same key path. Both start from
// the recipe, so each render draws afresh from the same ranges; without transformations the settings stay as they were
// read (or set).
void BVFilter::prepareToApply() {
  std::shared_ptr<BVInput> input = inputOf(processor());
  BVRandomization* randomization = randomizationOf(input);
  const Value* random = BVMember(parameters_, kBVFilterRandomKey);
  const Value* slider = BVMember(parameters_, kBVFilterSliderKey);
  std::optional<double> position = input ? input->sliderNumber() : std::nullopt;
  if (!random && !(slider && position)) return;
  prepared_ = parameters_;
  if (random) prepared_ = transformedParameters(prepared_, *random, std::nullopt, randomization);
  if (slider && position) prepared_ = transformedParameters(prepared_, *slider, position, randomization);
  readParameters(prepared_, reader(false));
}

void BVFilter::applyToCGContext(BVBitmapContext*) {
  throw BVFilterNotSupportedException(kBVFilterCoreGraphicsNotSupportedExceptionReason);
}

uint32_t BVFilter::randomInt32Uniform(uint32_t upperBound) const {
  std::shared_ptr<BVProcessing> running = processor();
  std::shared_ptr<const void> context = running ? running->randomizationContext() : nullptr;
  return BVRandomInt32Uniform(upperBound, randomizationOf(inputOf(running)),
                              context ? BVRandomizationContext(context.get()) : BVRandomizationContext());
}

CGPoint BVFilter::absoluteCenterPointInRect(const CGRect& rect, CGPoint relative) {
  CGPoint c{rect.origin.x + rect.size.width * 0.5, rect.origin.y + rect.size.height * 0.5};
  return {c.x + relative.x * c.x, c.y + relative.y * c.y};
}

double BVFilter::transitionTimingStart() const {
  return numberFor(parameters_, kBVFilterTransitionTimingStartKey).value_or(0.0);
}

double BVFilter::transitionTimingMiddle() const {
  if (auto middle = numberFor(parameters_, kBVFilterTransitionTimingMiddleKey)) return *middle;
  return (transitionTimingStart() + transitionTimingEnd()) * 0.5;
}

double BVFilter::transitionTimingEnd() const {
  return numberFor(parameters_, kBVFilterTransitionTimingEndKey).value_or(1.0);
}

std::string BVFilter::transitionKeyPath() const {
  return stringFor(parameters_, kBVFilterTransitionKeyPathKey).value_or("alpha");
}

double BVFilter::transitionMinimumValue() const {
  if (auto fixed = numberFor(parameters_, kBVFilterTransitionStaticValueKey)) return *fixed;
  return numberFor(parameters_, kBVFilterTransitionMinimumValueKey).value_or(0.0);
}

double BVFilter::transitionMaximumValue() const {
  if (auto fixed = numberFor(parameters_, kBVFilterTransitionStaticValueKey)) return *fixed;
  return numberFor(parameters_, kBVFilterTransitionMaximumValueKey).value_or(1.0);
}

std::optional<double> BVFilter::numberFor(const Value& parameters, std::string_view key) {
  const Value* member = BVMember(parameters, key);
  return member ? BVNumber(*member) : std::nullopt;
}

std::optional<bool> BVFilter::boolFor(const Value& parameters, std::string_view key) {
  const Value* member = BVMember(parameters, key);
  return member ? BVBool(*member) : std::nullopt;
}

std::optional<std::string> BVFilter::stringFor(const Value& parameters, std::string_view key) {
  const Value* member = BVMember(parameters, key);
  return member ? BVString(*member) : std::nullopt;
}

}  // namespace brenvia
