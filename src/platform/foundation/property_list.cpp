#include "platform/foundation/property_list.h"

#include "platform/foundation/log.h"

#include <plist/plist.h>

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace brenvia {
namespace {

// Larger inputs are refused before parsing; libplist takes 32-bit lengths.
constexpr size_t kMaxInputSize = size_t{1} << 28;
// Binary property lists can refer to one object many times; libplist copies it at every
// reference, so the expanded node count is bounded as well as the depth.
constexpr uint64_t kMaxExpandedNodes = uint64_t{1} << 22;

void logFailure(std::string_view reason) {
  BVLog("[BVPropertyList] Could not read property list: " + std::string(reason));
}

struct PlistDeleter {
  void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

struct MallocDeleter {
  void operator()(void* p) const { std::free(p); }
};
using MallocString = std::unique_ptr<char, MallocDeleter>;

uint64_t readBigEndian(const uint8_t* p, size_t n) {
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

// Checks the object graph of a binary property list before libplist walks it recursively:
// every reference in range, no cycles, nesting and expanded size within the limits.
bool checkBinaryStructure(const uint8_t* data, size_t size, std::string& reason) {
  constexpr size_t kHeader = 8, kTrailer = 32;
  if (size < kHeader + kTrailer) return reason = "binary property list is truncated", false;
  const uint8_t* trailer = data + size - kTrailer;
  size_t offsetSize = trailer[6], refSize = trailer[7];
  uint64_t count = readBigEndian(trailer + 8, 8), root = readBigEndian(trailer + 16, 8);
  uint64_t tableOffset = readBigEndian(trailer + 24, 8);
  size_t objectsEnd = size - kTrailer;
  if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || count == 0 || root >= count ||
      tableOffset < kHeader || tableOffset > objectsEnd || count > (objectsEnd - tableOffset) / offsetSize)
    return reason = "binary property list has a bad trailer", false;

  struct Node {
    uint8_t state = 0;  // 0 not seen, 1 on the path being walked, 2 done
    uint32_t depth = 0;
    uint64_t expanded = 0;
    size_t refs = 0, refCount = 0, next = 0;
  };
  std::vector<Node> nodes(count);
  // Reads the container header of object i: the position and number of its references.
  auto open = [&](uint64_t i) -> bool {
    uint64_t offset = readBigEndian(data + tableOffset + i * offsetSize, offsetSize);
    if (offset < kHeader || offset >= tableOffset) return false;
    uint8_t marker = data[offset];
    uint8_t type = marker >> 4;
    Node& n = nodes[i];
    bool container = type == 0xA || type == 0xB || type == 0xC || type == 0xD;
    bool string = type == 0x5 || type == 0x6 || type == 0x7;
    if (!container && !string) return true;
    uint64_t items = marker & 0xF;
    size_t pos = offset + 1;
    if (items == 0xF) {
      if (pos >= tableOffset || data[pos] >> 4 != 0x1) return false;
      size_t bytes = size_t{1} << (data[pos] & 0xF);
      if (bytes > 8 || bytes > tableOffset - pos - 1) return false;
      items = readBigEndian(data + pos + 1, bytes);
      pos += 1 + bytes;
    }
    if (string) {
      // libplist aborts on strings holding a NUL character, so they are refused here.
      size_t unit = type == 0x6 ? 2 : 1;
      if (items > (tableOffset - pos) / unit) return false;
      for (size_t k = 0; k < items; ++k) {
        const uint8_t* c = data + pos + k * unit;
        if (c[0] == 0 && (unit == 1 || c[1] == 0)) return false;
      }
      return true;
    }
    uint64_t refs = type == 0xD ? items * 2 : items;
    if (items > tableOffset || refs > (tableOffset - pos) / refSize) return false;
    n.refs = pos;
    n.refCount = static_cast<size_t>(refs);
    return true;
  };

  std::vector<uint64_t> stack{root};
  nodes[root].state = 1;
  if (!open(root)) return reason = "binary property list has a bad object", false;
  while (!stack.empty()) {
    Node& n = nodes[stack.back()];
    if (n.next < n.refCount) {
      uint64_t child = readBigEndian(data + n.refs + n.next * refSize, refSize);
      ++n.next;
      if (child >= count) return reason = "binary property list refers to a missing object", false;
      Node& c = nodes[child];
      if (c.state == 1) return reason = "binary property list refers to itself", false;
      if (c.state == 0) {
        c.state = 1;
        if (!open(child)) return reason = "binary property list has a bad object", false;
        if (stack.size() >= kBVPropertyListMaxDepth) return reason = "nesting is too deep", false;
        stack.push_back(child);
      }
      continue;
    }
    n.state = 2;
    uint32_t depth = 0;
    uint64_t expanded = 1;
    for (size_t k = 0; k < n.refCount; ++k) {
      const Node& c = nodes[readBigEndian(data + n.refs + k * refSize, refSize)];
      depth = std::max(depth, c.depth + 1);
      expanded += c.expanded;
      if (expanded > kMaxExpandedNodes) return reason = "binary property list is too large when expanded", false;
    }
    if (depth > kBVPropertyListMaxDepth) return reason = "nesting is too deep", false;
    n.depth = depth;
    n.expanded = expanded;
    stack.pop_back();
  }
  return true;
}

// libplist aborts on strings holding a NUL character: XML holding a NUL byte or a character
// reference that is zero (or too large to be a character, which may wrap to zero) is refused.
bool checkXMLCharacters(const uint8_t* data, size_t size, std::string& reason) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  if (text.find('\0') != std::string_view::npos) return reason = "XML holds a NUL character", false;
  for (size_t i = text.find("&#"); i != std::string_view::npos; i = text.find("&#", i + 2)) {
    size_t p = i + 2;
    bool hex = p < text.size() && (text[p] == 'x' || text[p] == 'X');
    if (hex) ++p;
    uint64_t code = 0;
    for (; p < text.size() && std::isxdigit(static_cast<unsigned char>(text[p])); ++p) {
      char c = text[p];
      if (!hex && !std::isdigit(static_cast<unsigned char>(c))) break;
      int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (std::tolower(c) - 'a' + 10);
      code = code * (hex ? 16 : 10) + digit;
      if (code > 0x10FFFF) break;
    }
    if (code == 0 || code > 0x10FFFF) return reason = "XML refers to a character that is zero or out of range", false;
  }
  return true;
}

// XML nesting is bounded by counting open and close tags of dictionaries and arrays; comments and
// text can only make the count larger, which errs on the side of refusing.
bool checkXMLDepth(const uint8_t* data, size_t size, std::string& reason) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  size_t depth = 0;
  for (size_t i = text.find('<'); i != std::string_view::npos; i = text.find('<', i + 1)) {
    std::string_view rest = text.substr(i + 1);
    bool closing = !rest.empty() && rest[0] == '/';
    if (closing) rest.remove_prefix(1);
    size_t nameLength = rest.starts_with("dict") ? 4 : rest.starts_with("array") ? 5 : 0;
    if (nameLength == 0) continue;
    size_t end = rest.find('>');
    bool empty = end != std::string_view::npos && end > 0 && rest[end - 1] == '/';
    if (closing) {
      if (depth > 0) --depth;
    } else if (!empty && ++depth > kBVPropertyListMaxDepth) {
      reason = "nesting is too deep";
      return false;
    }
  }
  return true;
}

// Strings from libplist are not checked for UTF-8; invalid sequences become U+FFFD so the value
// can always be serialised.
std::string validUTF8(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    auto c = static_cast<uint8_t>(s[i]);
    size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    bool ok = length > 0 && i + length <= s.size();
    uint32_t cp = length == 1 ? c : length == 2 ? c & 0x1F : length == 3 ? c & 0x0F : c & 0x07;
    for (size_t k = 1; ok && k < length; ++k) {
      auto t = static_cast<uint8_t>(s[i + k]);
      ok = (t >> 6) == 0x2;
      cp = cp << 6 | (t & 0x3F);
    }
    if (ok) {
      static constexpr uint32_t kMinimum[5] = {0, 0, 0x80, 0x800, 0x10000};
      ok = cp >= kMinimum[length] && cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF);
    }
    if (ok) {
      out.append(s.substr(i, length));
      i += length;
    } else {
      out.append("\xEF\xBF\xBD");
      ++i;
    }
  }
  return out;
}

std::string takeString(char* s) {
  MallocString owned(s);
  return s ? validUTF8(s) : std::string();
}

std::optional<Value> toValue(plist_t node, size_t depth) {
  if (depth > kBVPropertyListMaxDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
      Value object = Value::object();
      plist_dict_iter iter = nullptr;
      plist_dict_new_iter(node, &iter);
      std::unique_ptr<void, MallocDeleter> ownedIter(iter);
      for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iter, &key, &item);
        std::string name = takeString(key);
        if (!item) break;
        auto v = toValue(item, depth + 1);
        if (!v) return std::nullopt;
        object[name] = std::move(*v);
      }
      // XML has no UID element: UIDs are written as {"CF$UID": n}.
      if (object.size() == 1 && object.contains("CF$UID") && object["CF$UID"].is_number_integer())
        return Value{{"$uid", static_cast<uint64_t>(object["CF$UID"].get<int64_t>())}};
      return object;
    }
    case PLIST_ARRAY: {
      Value array = Value::array();
      uint32_t n = plist_array_get_size(node);
      for (uint32_t i = 0; i < n; ++i) {
        auto v = toValue(plist_array_get_item(node, i), depth + 1);
        if (!v) return std::nullopt;
        array.push_back(std::move(*v));
      }
      return array;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
      char* s = nullptr;
      plist_get_string_val(node, &s);
      return Value(takeString(s));
    }
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<int64_t>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(sec + usec / 1e6);
    }
    case PLIST_DATA: {
      char* bytes = nullptr;
      uint64_t length = 0;
      plist_get_data_val(node, &bytes, &length);
      MallocString owned(bytes);
      return Value{{"$data", BVBase64Encode(reinterpret_cast<const uint8_t*>(bytes), bytes ? length : 0)}};
    }
    case PLIST_UID: {
      uint64_t u = 0;
      plist_get_uid_val(node, &u);
      return Value{{"$uid", u}};
    }
    default:
      return std::nullopt;
  }
}

// The marker objects {"$data": base64} and {"$uid": n} stand for data and UIDs.
plist_t markerNode(const Value& v) {
  if (!v.is_object() || v.size() != 1) return nullptr;
  auto it = v.begin();
  if (it.key() == "$uid" && it->is_number_integer() && (it->is_number_unsigned() || it->get<int64_t>() >= 0))
    return plist_new_uid(it->get<uint64_t>());
  if (it.key() == "$data" && it->is_string()) {
    auto bytes = BVBase64Decode(it->get_ref<const std::string&>());
    if (bytes) return plist_new_data(reinterpret_cast<const char*>(bytes->data()), bytes->size());
  }
  return nullptr;
}

plist_t toNode(const Value& v, size_t depth, std::string& reason) {
  if (depth > kBVPropertyListMaxDepth) {
    reason = "nesting is too deep";
    return nullptr;
  }
  switch (v.type()) {
    case Value::value_t::object: {
      if (plist_t marker = markerNode(v)) return marker;
      PlistPtr dict(plist_new_dict());
      for (auto it = v.begin(); it != v.end(); ++it) {
        plist_t item = toNode(*it, depth + 1, reason);
        if (!item) return nullptr;
        plist_dict_set_item(dict.get(), it.key().c_str(), item);
      }
      return dict.release();
    }
    case Value::value_t::array: {
      PlistPtr array(plist_new_array());
      for (const Value& e : v) {
        plist_t item = toNode(e, depth + 1, reason);
        if (!item) return nullptr;
        plist_array_append_item(array.get(), item);
      }
      return array.release();
    }
    case Value::value_t::string:
      return plist_new_string(v.get_ref<const std::string&>().c_str());
    case Value::value_t::boolean:
      return plist_new_bool(v.get<bool>());
    case Value::value_t::number_integer:
      return plist_new_uint(static_cast<uint64_t>(v.get<int64_t>()));
    case Value::value_t::number_unsigned: {
      uint64_t u = v.get<uint64_t>();
      if (u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return plist_new_uint(u);
      return plist_new_real(static_cast<double>(u));
    }
    case Value::value_t::number_float:
      return plist_new_real(v.get<double>());
    default:
      reason = "null has no property-list form";
      return nullptr;
  }
}

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string BVBase64Encode(const uint8_t* data, size_t size) {
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  for (size_t i = 0; i < size; i += 3) {
    uint32_t chunk = uint32_t{data[i]} << 16;
    if (i + 1 < size) chunk |= uint32_t{data[i + 1]} << 8;
    if (i + 2 < size) chunk |= data[i + 2];
    out.push_back(kBase64[chunk >> 18 & 63]);
    out.push_back(kBase64[chunk >> 12 & 63]);
    out.push_back(i + 1 < size ? kBase64[chunk >> 6 & 63] : '=');
    out.push_back(i + 2 < size ? kBase64[chunk & 63] : '=');
  }
  return out;
}

std::optional<std::vector<uint8_t>> BVBase64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::vector<uint8_t> out;
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    uint32_t chunk = 0;
    int padding = 0;
    for (size_t k = 0; k < 4; ++k) {
      char c = text[i + k];
      const char* p = c == '=' ? nullptr : std::strchr(kBase64, c);
      if (c == '=') {
        // Padding only in the last two places of the last group.
        if (i + 4 != text.size() || k < 2) return std::nullopt;
        ++padding;
      } else if (!p || c == '\0' || padding > 0) {
        return std::nullopt;
      }
      chunk = chunk << 6 | (p ? static_cast<uint32_t>(p - kBase64) : 0);
    }
    out.push_back(static_cast<uint8_t>(chunk >> 16));
    if (padding < 2) out.push_back(static_cast<uint8_t>(chunk >> 8));
    if (padding < 1) out.push_back(static_cast<uint8_t>(chunk));
  }
  return out;
}

bool BVLooksLikePropertyList(const uint8_t* data, size_t size) {
  if (!data) return false;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  if (text.starts_with("bplist00")) return true;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  while (!text.empty() && (text[0] == ' ' || text[0] == '\t' || text[0] == '\r' || text[0] == '\n'))
    text.remove_prefix(1);
  if (!text.starts_with("<?xml") && !text.starts_with("<!DOCTYPE") && !text.starts_with("<plist")) return false;
  std::string_view head = text.substr(0, 1024);
  return head.find("<plist") != std::string_view::npos || head.find("<!DOCTYPE plist") != std::string_view::npos;
}

std::optional<Value> BVPropertyListRead(const uint8_t* data, size_t size) {
  if (!BVLooksLikePropertyList(data, size)) {
    logFailure("not a binary or XML property list");
    return std::nullopt;
  }
  if (size > kMaxInputSize) {
    logFailure("input is too large");
    return std::nullopt;
  }
  bool binary = size >= 8 && std::memcmp(data, "bplist00", 8) == 0;
  std::string reason;
  if (binary ? !checkBinaryStructure(data, size, reason)
             : !checkXMLCharacters(data, size, reason) || !checkXMLDepth(data, size, reason)) {
    logFailure(reason);
    return std::nullopt;
  }
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(data), static_cast<uint32_t>(size), &root);
  PlistPtr owned(root);
  if (!root) {
    logFailure(binary ? "malformed binary property list" : "malformed XML property list");
    return std::nullopt;
  }
  auto value = toValue(root, 0);
  if (!value) logFailure("unsupported or too deeply nested content");
  return value;
}

std::vector<uint8_t> BVPropertyListWrite(const Value& value, BVPropertyListFormat format) {
  std::string reason;
  PlistPtr root(toNode(value, 0, reason));
  if (!root) {
    BVLog("[BVPropertyList] Could not write property list: " + reason);
    return {};
  }
  char* bytes = nullptr;
  uint32_t length = 0;
  if (format == BVPropertyListFormat::Binary) {
    plist_to_bin(root.get(), &bytes, &length);
  } else {
    plist_to_xml(root.get(), &bytes, &length);
  }
  std::vector<uint8_t> out(bytes, bytes + (bytes ? length : 0));
  if (format == BVPropertyListFormat::Binary) {
    plist_to_bin_free(bytes);
  } else {
    plist_to_xml_free(bytes);
  }
  return out;
}

}  // namespace brenvia
