#pragma once

// Keyed archives: an object graph stored as a property list in the archiver layout.
//
// The top dictionary is {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": UID 1},
// "$objects": ["$null", ...]}. Every coded object is a dictionary of its fields plus "$class", the
// UID of {"$classname": name, "$classes": [name, superclasses..., "NSObject"]}. Scalars are stored
// inline; strings, numbers and data are plain entries of "$objects"; dictionaries and arrays are
// {"NS.keys": [UIDs], "NS.objects": [UIDs]} and {"NS.objects": [UIDs]}. UID 0 is nil.

#include "platform/foundation/property_list.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace brenvia {

class BVKeyedArchiver;
class BVKeyedUnarchiver;

// A class whose instances can be archived. Decoding goes through a factory registered with
// BVKeyedUnarchiver::registerClass under the same class name.
struct BVCoding {
  virtual ~BVCoding() = default;
  virtual std::string className() const = 0;
  // Superclasses, nearest first, without "NSObject" (which the archive always ends with).
  virtual std::vector<std::string> superclassNames() const { return {}; }
  virtual void encodeWithCoder(BVKeyedArchiver& coder) const = 0;
};

class BVKeyedArchiver {
 public:
  // The archive of a root object.
  static std::vector<uint8_t> archivedData(const BVCoding& root,
                                           BVPropertyListFormat format = BVPropertyListFormat::Binary);

  // Field writers for the object being encoded; a later write to the same key replaces the earlier.
  void encodeDouble(double value, std::string_view key);
  void encodeInteger(int64_t value, std::string_view key);
  void encodeBool(bool value, std::string_view key);
  // A JSON-shaped value: strings, numbers, booleans and data markers become plain entries, arrays and
  // dictionaries become archived collections, null becomes nil.
  void encodeObject(const Value& plainValue, std::string_view key);
  // A nested coded object; a null pointer is nil.
  void encodeObject(const BVCoding& object, std::string_view key);
  void encodeObject(const std::shared_ptr<const BVCoding>& object, std::string_view key);
  void encodeCGPoint(CGPoint point, std::string_view key);

 private:
  BVKeyedArchiver();
  uint64_t append(Value entry);
  uint64_t classUID(const std::string& name, const std::vector<std::string>& superclasses);
  uint64_t encodeCoded(const BVCoding& object, size_t depth);
  uint64_t encodePlain(const Value& value, size_t depth);
  void setField(std::string_view key, Value field);

  Value objects_;
  std::unordered_map<std::string, uint64_t> classes_;
  size_t current_ = 0;  // index in objects_ of the object whose fields are being written
  size_t depth_ = 0;
  bool failed_ = false;
};

class BVKeyedUnarchiver {
 public:
  using Factory = std::function<std::shared_ptr<BVCoding>(BVKeyedUnarchiver& coder)>;

  // Maps a class name to the factory that decodes it (replacing an earlier one). Thread-safe.
  static void registerClass(const std::string& name, Factory factory);

  // The root object of an archive; null, with one log line, when the bytes are not an archive, the
  // root's class (or a nested object's) is not registered, or the object graph is malformed.
  static std::shared_ptr<BVCoding> unarchivedObject(const uint8_t* data, size_t size);
  template <class T>
  static std::shared_ptr<T> unarchivedObjectOfClass(const uint8_t* data, size_t size) {
    return std::dynamic_pointer_cast<T>(unarchivedObject(data, size));
  }

  // The class name of the object being decoded.
  const std::string& className() const { return className_; }
  bool containsValueForKey(std::string_view key) const;

  // Field readers for the object being decoded. Missing or mistyped fields give 0, false, nil.
  double decodeDouble(std::string_view key) const;
  int64_t decodeInteger(std::string_view key) const;
  bool decodeBool(std::string_view key) const;
  // A plain value (string, number, boolean, data marker, array, dictionary); null for nil, for a
  // coded object and for a missing key.
  Value decodeObject(std::string_view key);
  // A nested coded object of class T (or a subclass); null otherwise.
  template <class T>
  std::shared_ptr<T> decodeObjectOfClass(std::string_view key) {
    return std::dynamic_pointer_cast<T>(decodeCodedObject(key));
  }
  std::shared_ptr<BVCoding> decodeCodedObject(std::string_view key);
  CGPoint decodeCGPoint(std::string_view key);

 private:
  explicit BVKeyedUnarchiver(Value objects);
  const Value* field(std::string_view key) const;
  std::optional<uint64_t> referenceOf(std::string_view key) const;
  std::shared_ptr<BVCoding> decodeCodedAt(uint64_t uid);
  std::optional<Value> decodePlainAt(uint64_t uid, size_t depth);
  std::optional<std::string> classNameAt(const Value& entry);
  bool fail(const std::string& reason);

  Value objects_;
  const Value* current_ = nullptr;
  std::string className_;
  std::vector<uint64_t> path_;  // UIDs of the coded objects being decoded, outermost first
  std::unordered_map<uint64_t, std::shared_ptr<BVCoding>> decoded_;
  uint64_t budget_;
  bool failed_ = false;
};

}  // namespace brenvia
