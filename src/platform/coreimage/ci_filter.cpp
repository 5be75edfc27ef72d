#include "platform/coreimage/ci_filter.h"

#include "platform/foundation/log.h"
#include "platform/foundation/once.h"

#include <nlohmann/json.hpp>

#include <shared_mutex>
#include <unordered_map>

namespace brenvia {

struct CIFilterRegistry {
  struct Entry {
    std::shared_ptr<const CIFilterClassAttributes> attributes;
    CIFilter::Builder build;
    CIFilter::Constructor construct;
  };

  std::shared_mutex mutex;
  std::unordered_map<std::string, Entry> entries;

  // The registry without the built-in operations; registering goes through here.
  static CIFilterRegistry& instance() {
    static CIFilterRegistry registry;
    return registry;
  }

  // The registry with the built-in operations registered.
  static CIFilterRegistry& shared() {
    static BVOnce builtins;
    builtins([] { ci::registerBuiltinOperations(); });
    return instance();
  }

  void add(std::string name, Entry entry) {
    std::unique_lock lock(mutex);
    const auto& categories = entry.attributes->categories;
    if (entry.attributes->role == CIOperationRole::Other &&
        std::find(categories.begin(), categories.end(), kCICategoryCompositeOperation) != categories.end()) {
      auto declared = std::make_shared<CIFilterClassAttributes>(*entry.attributes);
      declared->role = CIOperationRole::Compositing;
      entry.attributes = std::move(declared);
    }
    entries[std::move(name)] = std::move(entry);
  }

  std::shared_ptr<CIFilter> make(std::string_view name) {
    Entry entry;
    {
      std::shared_lock lock(mutex);
      auto it = entries.find(std::string(name));
      if (it == entries.end()) return nullptr;
      entry = it->second;
    }
    std::shared_ptr<CIFilter> filter = entry.construct ? entry.construct() : std::shared_ptr<CIFilter>(new CIFilter());
    if (!filter) return nullptr;
    filter->name_ = std::string(name);
    filter->attributes_ = entry.attributes;
    filter->build_ = entry.build;
    filter->setDefaults();
    return filter;
  }
};

namespace {

Value toJson(const CIValue& v) {
  if (auto d = v.get<double>()) return *d;
  if (auto s = v.get<std::string>()) return *s;
  if (auto vec = v.get<CIVector>()) return vec->values();
  if (auto c = v.get<CIColor>()) return {c->red(), c->green(), c->blue(), c->alpha()};
  if (auto t = v.get<CGAffineTransform>()) return {t->a, t->b, t->c, t->d, t->tx, t->ty};
  return nullptr;
}

}  // namespace

std::shared_ptr<CIFilter> CIFilter::filterWithName(std::string_view name) {
  return CIFilterRegistry::shared().make(name);
}

std::shared_ptr<CIFilter> CIFilter::filterWithName(std::string_view name, const CIFilterParameters& parameters) {
  auto filter = filterWithName(name);
  if (!filter) return nullptr;
  for (const auto& [key, value] : parameters) filter->setValue(value, key);
  return filter;
}

void CIFilter::registerOperation(std::string name, CIFilterClassAttributes attributes, Builder build) {
  CIFilterRegistry::instance().add(
      std::move(name),
      {std::make_shared<const CIFilterClassAttributes>(std::move(attributes)), std::move(build), nullptr});
}

void CIFilter::registerFilterName(std::string name, Constructor constructor, CIFilterClassAttributes attributes) {
  CIFilterRegistry::instance().add(
      std::move(name),
      {std::make_shared<const CIFilterClassAttributes>(std::move(attributes)), nullptr, std::move(constructor)});
}

std::vector<std::string> CIFilter::filterNames() {
  auto& registry = CIFilterRegistry::shared();
  std::shared_lock lock(registry.mutex);
  std::vector<std::string> names;
  for (const auto& [name, entry] : registry.entries) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> CIFilter::inputKeys() const {
  std::vector<std::string> keys;
  for (const auto& input : attributes_->inputs) keys.push_back(input.key);
  return keys;
}

Value CIFilter::attributes() const {
  Value a = Value::object();
  a["CIAttributeFilterName"] = name_;
  a["CIAttributeFilterDisplayName"] = attributes_->displayName;
  a["CIAttributeFilterCategories"] = attributes_->categories;
  for (const auto& input : attributes_->inputs) {
    Value d = {{"CIAttributeClass", input.attributeClass}};
    if (!input.defaultValue.isNull()) d["CIAttributeDefault"] = toJson(input.defaultValue);
    if (input.min) d["CIAttributeMin"] = *input.min;
    if (input.max) d["CIAttributeMax"] = *input.max;
    a[input.key] = std::move(d);
  }
  return a;
}

void CIFilter::setDefaults() {
  for (const auto& input : attributes_->inputs) {
    if (!input.defaultValue.isNull()) values_[input.key] = input.defaultValue;
  }
}

const CIInputSpec* CIFilter::spec(std::string_view key) const {
  for (const auto& input : attributes_->inputs) {
    if (input.key == key) return &input;
  }
  return nullptr;
}

void CIFilter::setValue(const CIValue& value, std::string_view key) {
  if (!spec(key)) {
    BVLog("[CIFilter] Unknown key `" + std::string(key) + "` for `" + name_ + "` ignored.");
    return;
  }
  if (value.isNull()) {
    values_.erase(std::string(key));
  } else {
    values_[std::string(key)] = value;
  }
}

CIValue CIFilter::valueForKey(std::string_view key) const {
  auto it = values_.find(key);
  return it == values_.end() ? CIValue() : it->second;
}

CIImageRef CIFilter::outputImage() const { return build_ ? build_(*this) : nullptr; }

std::shared_ptr<CIFilter> CIFilter::copy() const {
  auto other = filterWithName(name_);
  if (other) other->values_ = values_;
  return other;
}

template <class T>
const T* CIFilter::typed(std::string_view key) const {
  auto it = values_.find(key);
  if (it != values_.end()) {
    if (const T* v = it->second.get<T>()) return v;
  }
  const CIInputSpec* s = spec(key);
  return s ? s->defaultValue.get<T>() : nullptr;
}

CIImageRef CIFilter::image(std::string_view key) const {
  const CIImageRef* v = typed<CIImageRef>(key);
  return v ? *v : nullptr;
}

double CIFilter::number(std::string_view key) const {
  const double* v = typed<double>(key);
  return v ? *v : 0.0;
}

CIVector CIFilter::vector(std::string_view key) const {
  const CIVector* v = typed<CIVector>(key);
  return v ? *v : CIVector();
}

CIColor CIFilter::color(std::string_view key) const {
  const CIColor* v = typed<CIColor>(key);
  return v ? *v : CIColor();
}

CGAffineTransform CIFilter::affineTransform(std::string_view key) const {
  const CGAffineTransform* v = typed<CGAffineTransform>(key);
  return v ? *v : CGAffineTransformIdentity;
}

CIData CIFilter::data(std::string_view key) const {
  const CIData* v = typed<CIData>(key);
  return v ? *v : nullptr;
}

std::string CIFilter::string(std::string_view key) const {
  const std::string* v = typed<std::string>(key);
  return v ? *v : std::string();
}

CGColorSpaceRef CIFilter::colorSpace(std::string_view key) const {
  const CGColorSpaceRef* v = typed<CGColorSpaceRef>(key);
  return v ? *v : nullptr;
}

}  // namespace brenvia
