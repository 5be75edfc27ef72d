#include "platform/foundation/keyed_archive.h"

#include "platform/foundation/log.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <mutex>
#include <utility>

namespace brenvia {
namespace {

constexpr std::string_view kNull = "$null";
constexpr int64_t kArchiveVersion = 100000;
// Nested objects and collections deeper than this are refused, on writing and reading.
constexpr size_t kMaxDepth = 512;
// Shared references let a small archive describe a huge tree of plain values; decoding stops after
// this many entries.
constexpr uint64_t kMaxDecodedEntries = uint64_t{1} << 20;

bool isArrayClass(std::string_view name) { return name == "NSArray" || name == "NSMutableArray"; }
bool isDictionaryClass(std::string_view name) { return name == "NSDictionary" || name == "NSMutableDictionary"; }

Value uidValue(uint64_t uid) { return Value{{"$uid", uid}}; }

// The index of a {"$uid": n} marker.
std::optional<uint64_t> uidOf(const Value& v) {
  if (!v.is_object() || v.size() != 1) return std::nullopt;
  auto it = v.find("$uid");
  if (it == v.end() || !it->is_number_integer()) return std::nullopt;
  if (!it->is_number_unsigned() && it->get<int64_t>() < 0) return std::nullopt;
  return it->get<uint64_t>();
}

bool isDataMarker(const Value& v) {
  return v.is_object() && v.size() == 1 && v.contains("$data") && v["$data"].is_string() &&
         BVBase64Decode(v["$data"].get_ref<const std::string&>()).has_value();
}

// The point of a "{x, y}" string; nothing for other text.
std::optional<CGPoint> pointFromString(std::string_view s) {
  auto skipSpaces = [&] {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  };
  auto number = [&]() -> std::optional<double> {
    skipSpaces();
    double v = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc()) return std::nullopt;
    s.remove_prefix(static_cast<size_t>(end - s.data()));
    skipSpaces();
    return v;
  };
  skipSpaces();
  if (s.empty() || s.front() != '{') return std::nullopt;
  s.remove_prefix(1);
  auto x = number();
  if (!x || s.empty() || s.front() != ',') return std::nullopt;
  s.remove_prefix(1);
  auto y = number();
  if (!y || s != "}") return std::nullopt;
  return CGPoint{*x, *y};
}

struct Registry {
  std::mutex mutex;
  std::unordered_map<std::string, BVKeyedUnarchiver::Factory> factories;
};

Registry& registry() {
  static Registry r;
  return r;
}

}  // namespace

// ---- Archiver ----

BVKeyedArchiver::BVKeyedArchiver() : objects_(Value::array({std::string(kNull)})) {}

std::vector<uint8_t> BVKeyedArchiver::archivedData(const BVCoding& root, BVPropertyListFormat format) {
  BVKeyedArchiver archiver;
  archiver.encodeCoded(root, 0);
  if (archiver.failed_) {
    BVLog("[BVKeyedArchiver] Could not archive " + root.className() + ": objects nest too deeply");
    return {};
  }
  Value top = {{"$archiver", "NSKeyedArchiver"},
               {"$version", kArchiveVersion},
               {"$top", {{"root", uidValue(1)}}},
               {"$objects", std::move(archiver.objects_)}};
  return BVPropertyListWrite(top, format);
}

uint64_t BVKeyedArchiver::append(Value entry) {
  objects_.push_back(std::move(entry));
  return objects_.size() - 1;
}

uint64_t BVKeyedArchiver::classUID(const std::string& name, const std::vector<std::string>& superclasses) {
  if (auto it = classes_.find(name); it != classes_.end()) return it->second;
  Value chain = Value::array({name});
  for (const auto& s : superclasses) chain.push_back(s);
  if (chain.back() != "NSObject") chain.push_back("NSObject");
  uint64_t uid = append({{"$classname", name}, {"$classes", std::move(chain)}});
  classes_.emplace(name, uid);
  return uid;
}

uint64_t BVKeyedArchiver::encodeCoded(const BVCoding& object, size_t depth) {
  if (depth > kMaxDepth || failed_) {
    failed_ = true;
    return 0;
  }
  uint64_t uid = append(Value::object());
  size_t saved = current_, savedDepth = depth_;
  current_ = uid;
  depth_ = depth;
  object.encodeWithCoder(*this);
  current_ = saved;
  depth_ = savedDepth;
  uint64_t cls = classUID(object.className(), object.superclassNames());
  objects_[uid]["$class"] = uidValue(cls);
  return uid;
}

uint64_t BVKeyedArchiver::encodePlain(const Value& value, size_t depth) {
  if (depth > kMaxDepth || failed_) {
    failed_ = true;
    return 0;
  }
  if (value.is_null()) return 0;
  if (value.is_array()) {
    Value uids = Value::array();
    for (const Value& e : value) uids.push_back(uidValue(encodePlain(e, depth + 1)));
    return append({{"NS.objects", std::move(uids)}, {"$class", uidValue(classUID("NSArray", {}))}});
  }
  if (value.is_object() && !isDataMarker(value)) {
    Value keys = Value::array(), values = Value::array();
    for (auto it = value.begin(); it != value.end(); ++it) {
      keys.push_back(uidValue(append(it.key())));
      values.push_back(uidValue(encodePlain(*it, depth + 1)));
    }
    return append({{"NS.keys", std::move(keys)},
                   {"NS.objects", std::move(values)},
                   {"$class", uidValue(classUID("NSDictionary", {}))}});
  }
  return append(value);
}

void BVKeyedArchiver::setField(std::string_view key, Value field) {
  if (key == "$class") return;
  objects_[current_][std::string(key)] = std::move(field);
}

void BVKeyedArchiver::encodeDouble(double value, std::string_view key) { setField(key, value); }
void BVKeyedArchiver::encodeInteger(int64_t value, std::string_view key) { setField(key, value); }
void BVKeyedArchiver::encodeBool(bool value, std::string_view key) { setField(key, value); }

void BVKeyedArchiver::encodeObject(const Value& plainValue, std::string_view key) {
  setField(key, uidValue(encodePlain(plainValue, depth_ + 1)));
}

void BVKeyedArchiver::encodeObject(const BVCoding& object, std::string_view key) {
  setField(key, uidValue(encodeCoded(object, depth_ + 1)));
}

void BVKeyedArchiver::encodeObject(const std::shared_ptr<const BVCoding>& object, std::string_view key) {
  if (object) {
    encodeObject(*object, key);
  } else {
    setField(key, uidValue(0));
  }
}

void BVKeyedArchiver::encodeCGPoint(CGPoint point, std::string_view key) {
  setField(key, uidValue(append(NSStringFromCGPoint(point))));
}

// ---- Unarchiver ----

void BVKeyedUnarchiver::registerClass(const std::string& name, Factory factory) {
  std::lock_guard lock(registry().mutex);
  registry().factories[name] = std::move(factory);
}

BVKeyedUnarchiver::BVKeyedUnarchiver(Value objects) : objects_(std::move(objects)), budget_(kMaxDecodedEntries) {}

std::shared_ptr<BVCoding> BVKeyedUnarchiver::unarchivedObject(const uint8_t* data, size_t size) {
  auto plist = BVPropertyListRead(data, size);
  if (!plist) return nullptr;
  const Value* objects = BVMember(*plist, "$objects");
  const Value* top = BVMember(*plist, "$top");
  const Value* root = top ? BVMember(*top, "root") : nullptr;
  std::optional<uint64_t> rootUID = root ? uidOf(*root) : std::nullopt;
  if (!objects || !objects->is_array() || objects->empty() || !rootUID) {
    BVLog("[BVKeyedUnarchiver] Could not unarchive: not a keyed archive");
    return nullptr;
  }
  BVKeyedUnarchiver coder(std::move((*plist)["$objects"]));
  auto object = coder.decodeCodedAt(*rootUID);
  if (coder.failed_) return nullptr;
  if (!object) coder.fail("the root is not an object of a registered class");
  return object;
}

bool BVKeyedUnarchiver::fail(const std::string& reason) {
  if (!failed_) BVLog("[BVKeyedUnarchiver] Could not unarchive: " + reason);
  failed_ = true;
  return false;
}

std::optional<std::string> BVKeyedUnarchiver::classNameAt(const Value& entry) {
  const Value* cls = BVMember(entry, "$class");
  if (!cls) return std::nullopt;
  auto uid = uidOf(*cls);
  if (!uid || *uid == 0 || *uid >= objects_.size()) {
    fail("an object has a bad class reference");
    return std::nullopt;
  }
  const Value* name = BVMember(objects_[*uid], "$classname");
  if (!name || !name->is_string()) {
    fail("an object's class has no name");
    return std::nullopt;
  }
  return name->get<std::string>();
}

std::shared_ptr<BVCoding> BVKeyedUnarchiver::decodeCodedAt(uint64_t uid) {
  if (failed_ || uid == 0) return nullptr;
  if (uid >= objects_.size()) return fail("a reference points past the last object"), nullptr;
  if (auto it = decoded_.find(uid); it != decoded_.end()) return it->second;
  if (std::find(path_.begin(), path_.end(), uid) != path_.end()) return fail("an object contains itself"), nullptr;
  if (path_.size() >= kMaxDepth) return fail("objects nest too deeply"), nullptr;
  if (budget_ == 0) return fail("the archive expands to too many objects"), nullptr;
  --budget_;
  const Value& entry = objects_[uid];
  auto name = classNameAt(entry);
  if (!name || isArrayClass(*name) || isDictionaryClass(*name)) return nullptr;
  Factory factory;
  {
    std::lock_guard lock(registry().mutex);
    auto it = registry().factories.find(*name);
    if (it != registry().factories.end()) factory = it->second;
  }
  if (!factory) return fail("unknown class " + *name), nullptr;

  const Value* savedCurrent = current_;
  std::string savedName = std::move(className_);
  current_ = &entry;
  className_ = *name;
  path_.push_back(uid);
  auto object = factory(*this);
  path_.pop_back();
  current_ = savedCurrent;
  className_ = std::move(savedName);
  if (failed_) return nullptr;
  decoded_.emplace(uid, object);
  return object;
}

std::optional<Value> BVKeyedUnarchiver::decodePlainAt(uint64_t uid, size_t depth) {
  if (failed_) return std::nullopt;
  if (uid >= objects_.size()) return fail("a reference points past the last object"), std::nullopt;
  if (depth > kMaxDepth) return fail("values nest too deeply or contain themselves"), std::nullopt;
  if (budget_ == 0) return fail("the archive expands to too many objects"), std::nullopt;
  --budget_;
  const Value& entry = objects_[uid];
  if (uid == 0) return Value();
  if (entry.is_string() || entry.is_number() || entry.is_boolean() || isDataMarker(entry)) return entry;
  auto name = classNameAt(entry);
  if (failed_) return std::nullopt;
  if (!name) return fail("an entry is neither a value nor an object"), std::nullopt;

  auto references = [&](const char* key) -> const Value* {
    const Value* list = BVMember(entry, key);
    if (!list || !list->is_array()) return nullptr;
    for (const Value& r : *list)
      if (!uidOf(r)) return nullptr;
    return list;
  };
  if (isArrayClass(*name)) {
    const Value* items = references("NS.objects");
    if (!items) return fail("an array has no list of references"), std::nullopt;
    Value array = Value::array();
    for (const Value& r : *items) {
      auto v = decodePlainAt(*uidOf(r), depth + 1);
      if (!v) return std::nullopt;
      array.push_back(std::move(*v));
    }
    return array;
  }
  if (isDictionaryClass(*name)) {
    const Value* keys = references("NS.keys");
    const Value* values = references("NS.objects");
    if (!keys || !values || keys->size() != values->size())
      return fail("a dictionary has unmatched keys and values"), std::nullopt;
    Value dict = Value::object();
    for (size_t i = 0; i < keys->size(); ++i) {
      auto k = decodePlainAt(*uidOf((*keys)[i]), depth + 1);
      if (!k) return std::nullopt;
      if (!k->is_string()) return fail("a dictionary key is not a string"), std::nullopt;
      auto v = decodePlainAt(*uidOf((*values)[i]), depth + 1);
      if (!v) return std::nullopt;
      dict[k->get<std::string>()] = std::move(*v);
    }
    return dict;
  }
  // A coded object inside a plain value has no JSON form: it reads as nil.
  return Value();
}

const Value* BVKeyedUnarchiver::field(std::string_view key) const {
  if (!current_ || key == "$class") return nullptr;
  return BVMember(*current_, key);
}

std::optional<uint64_t> BVKeyedUnarchiver::referenceOf(std::string_view key) const {
  const Value* f = field(key);
  return f ? uidOf(*f) : std::nullopt;
}

bool BVKeyedUnarchiver::containsValueForKey(std::string_view key) const { return field(key) != nullptr; }

double BVKeyedUnarchiver::decodeDouble(std::string_view key) const {
  const Value* f = field(key);
  return f && f->is_number() ? f->get<double>() : 0.0;
}

int64_t BVKeyedUnarchiver::decodeInteger(std::string_view key) const {
  const Value* f = field(key);
  if (!f) return 0;
  if (f->is_number_integer()) return f->get<int64_t>();
  if (f->is_boolean()) return f->get<bool>() ? 1 : 0;
  if (f->is_number_float()) {
    double d = f->get<double>();
    // Reals outside the integer range (and NaN) read as 0 rather than overflowing.
    if (d >= -9223372036854775808.0 && d < 9223372036854775808.0) return static_cast<int64_t>(d);
  }
  return 0;
}

bool BVKeyedUnarchiver::decodeBool(std::string_view key) const {
  const Value* f = field(key);
  if (!f) return false;
  if (f->is_boolean()) return f->get<bool>();
  return f->is_number() && f->get<double>() != 0;
}

Value BVKeyedUnarchiver::decodeObject(std::string_view key) {
  auto uid = referenceOf(key);
  if (!uid) return Value();
  return decodePlainAt(*uid, path_.size()).value_or(Value());
}

std::shared_ptr<BVCoding> BVKeyedUnarchiver::decodeCodedObject(std::string_view key) {
  auto uid = referenceOf(key);
  return uid ? decodeCodedAt(*uid) : nullptr;
}

CGPoint BVKeyedUnarchiver::decodeCGPoint(std::string_view key) {
  Value v = decodeObject(key);
  if (!v.is_string()) return {};
  return pointFromString(v.get_ref<const std::string&>()).value_or(CGPoint{});
}

}  // namespace brenvia
