#include "filter/filter.h"

#include "catalogue/adjustment_filter.h"
#include "catalogue/color_filter.h"
#include "catalogue/curves_filter.h"
#include "catalogue/fade_filter.h"
#include "catalogue/image_filter.h"
#include "catalogue/levels_filter.h"
#include "catalogue/selective_color_filter.h"
#include "catalogue/sharpen_filter.h"
#include "catalogue/unsharp_mask_filter.h"
#include "catalogue/vignette_filter.h"
#include "filter/dynamic_parameters.h"
#include "filter/randomization.h"
#include "platform/coreimage/ci_filter.h"
#include "platform/foundation/log.h"
#include "platform/foundation/once.h"
#include "filter/input.h"
#include "filter/processing.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>

namespace brenvia {
namespace {

using TypeTable = std::map<std::string, BVFilterClass, std::less<>>;

template <class T>
BVFilterClass classOf(std::string_view name) {
  return {name, [] { return BVFilterRef(std::make_shared<T>()); }};
}

const TypeTable& typeTable() {
  static BVOnce once;
  static TypeTable table;
  once([] {
    table.emplace(kBVFilterTypeAdjustment, classOf<BVAdjustmentFilter>("BVAdjustmentFilter"));
    table.emplace(kBVFilterTypeCurves, classOf<BVCurvesFilter>("BVCurvesFilter"));
    table.emplace(kBVFilterTypeImage, classOf<BVImageFilter>("BVImageFilter"));
    table.emplace(kBVFilterTypeRandomImage, classOf<BVRandomImageFilter>("BVRandomImageFilter"));
    table.emplace(kBVFilterTypeImageSequence, classOf<BVImageSequenceFilter>("BVImageSequenceFilter"));
    table.emplace(kBVFilterTypeColor, classOf<BVColorFilter>("BVColorFilter"));
    table.emplace(kBVFilterTypeLevels, classOf<BVLevelsFilter>("BVLevelsFilter"));
    table.emplace(kBVFilterTypeFade, classOf<BVFadeFilter>("BVFadeFilter"));
    table.emplace(kBVFilterTypeSelectiveColor, classOf<BVSelectiveColorFilter>("BVSelectiveColorFilter"));
    table.emplace(kBVFilterTypeSharpen, classOf<BVSharpenFilter>("BVSharpenFilter"));
    table.emplace(kBVFilterTypeUnsharpMask, classOf<BVUnsharpMaskFilter>("BVUnsharpMaskFilter"));
    table.emplace(kBVFilterTypeVignette, classOf<BVVignetteFilter>("BVVignetteFilter"));
  });
  return table;
}

void registerDecoder(const BVFilterClass& filterClass) {
  BVKeyedUnarchiver::registerClass(std::string(filterClass.name),
                                   [make = filterClass.make](BVKeyedUnarchiver& coder) -> std::shared_ptr<BVCoding> {
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
    BVLog("[BVFilter] Transformations must be a dictionary or an array of dictionaries, not " + entries.dump());
    return parameters;
  }
  Value transformed = parameters;
  for (const Value& entry : entries) {
    transformed = BVDictionaryTransformedWithDictionary(transformed, entry, position, randomization);
  }
  return transformed;
}

}  // namespace

const BVFilterClass* BVFilterClassForType(std::string_view type) {
  const TypeTable& table = typeTable();
  auto it = table.find(type);
  return it == table.end() ? nullptr : &it->second;
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
  const Value* type = BVMember(parameters, kBVFilterTypeKey);
  const BVFilterClass* filterClass = type && type->is_string() ? BVFilterClassForType(type->get<std::string>()) : nullptr;
  if (!filterClass) {
    std::string shown = !type || type->is_null() ? "(null)" : type->is_string() ? type->get<std::string>() : type->dump();
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
    registerDecoder({"BVFilter", [] { return std::make_shared<BVFilter>(); }});
    for (const auto& [type, filterClass] : typeTable()) registerDecoder(filterClass);
  });
}

CIFilterArray BVFilter::CIFiltersForBVFilters(const BVFilterArray& filters, CGSize size) {
  CIFilterArray all;
  for (const auto& filter : filters) {
    if (!filter) continue;
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

void BVFilter::initWithParameters(const Value& parameters) { setParameters(parameters); }

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
  made->setEnabled(isEnabled());
  return made;
}

std::string BVFilter::description() const {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, "<%s: %p>", className().c_str(), static_cast<const void*>(this));
  return buffer;
}

void BVFilter::setParameters(const Value& parameters) {
  parameters_ = parameters;
  optionalDuringLivePreview_ = boolFor(parameters, kBVFilterOptionalDuringLivePreviewKey).value_or(false);
  const Value* tags = BVMember(parameters, kBVFilterTagsKey);
  if (tags && tags->is_array() && !tags->empty()) {
    std::vector<std::string> fromRecipe;
    for (const Value& tag : *tags) {
      if (tag.is_string()) fromRecipe.push_back(tag.get<std::string>());
    }
    parameterTags_ = additionalTags_;
    parameterTags_.insert(parameterTags_.end(), fromRecipe.begin(), fromRecipe.end());
  }
  enabled_ = boolFor(parameters, kBVFilterEnabledKey).value_or(true);
  opaque_ = boolFor(parameters, kBVFilterOpaqueKey).value_or(false);
  filterFrequency_ = numberFor(parameters, kBVFilterFilterFrequencyKey).value_or(1.0);
}

bool BVFilter::isEnabled() const {
  std::shared_ptr<BVInput> input = inputOf(processor());
  if (!input || !input->disableTags || input->disableTags->empty()) return enabled_;
  const std::vector<std::string>& disabled = *input->disableTags;
  for (const std::string& tag : tags()) {
    if (std::find(disabled.begin(), disabled.end(), tag) != disabled.end()) return false;
  }
  return enabled_;
}

std::vector<std::string> BVFilter::tags() const {
  if (additionalTags_.empty()) return parameterTags_;
  std::vector<std::string> all = additionalTags_;
  all.insert(all.end(), parameterTags_.begin(), parameterTags_.end());
  return all;
}

CIFilterArray BVFilter::CIFiltersForSize(CGSize) {
  supportsCIFilter_ = !boolFor(parameters_, "skipCIFilter").value_or(false);
  prepareToApply();
  return {};
}

bool BVFilter::shouldApply() {
  return BVShouldApplyWithFrequency({}, randomizationOf(inputOf(processor())), filterFrequency_);
}

// Random values first, then the slider, so that a slider overrides a random value at the same key
// path. The transformed parameters keep both entries: each pass applies them again. The entries are
// copied because setParameters replaces the dictionary they live in.
void BVFilter::prepareToApply() {
  std::shared_ptr<BVInput> input = inputOf(processor());
  BVRandomization* randomization = randomizationOf(input);
  if (const Value* random = BVMember(parameters_, kBVFilterRandomKey)) {
    setParameters(transformedParameters(parameters_, Value(*random), std::nullopt, randomization));
  }
  std::optional<double> position = input ? input->sliderNumber() : std::nullopt;
  const Value* slider = BVMember(parameters_, kBVFilterSliderKey);
  if (slider && position) setParameters(transformedParameters(parameters_, Value(*slider), position, randomization));
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
