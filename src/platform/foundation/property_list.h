#pragma once

// Property lists (binary and XML) read into and written from JSON-shaped values.
//
// The mapping: dictionary <-> object, array <-> array, string <-> string, boolean <-> boolean,
// integer <-> integer number (signed 64-bit, two's complement), real <-> floating-point number,
// date -> number of seconds since 2001-01-01 00:00:00 UTC, data <-> {"$data": "<base64>"},
// UID <-> {"$uid": n}.

#include "platform/foundation/value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace brenvia {

enum class BVPropertyListFormat { Binary, XML };

// The value of a binary ("bplist00") or XML property list; nothing (and one log line) for bytes
// that are not one, that nest deeper than kBVPropertyListMaxDepth or that are too large.
std::optional<Value> BVPropertyListRead(const uint8_t* data, size_t size);

// The property list of a value. Integers that fit in 64 signed bits are written as integers, other
// numbers as reals. A value holding null has no property-list form: the result is empty and one
// line is logged.
std::vector<uint8_t> BVPropertyListWrite(const Value& value, BVPropertyListFormat format = BVPropertyListFormat::Binary);

// True when the bytes start with the binary magic or an XML property-list header.
bool BVLooksLikePropertyList(const uint8_t* data, size_t size);

inline constexpr size_t kBVPropertyListMaxDepth = 512;

// Base64 text of bytes and back (nothing for text that is not base64); used for data markers.
std::string BVBase64Encode(const uint8_t* data, size_t size);
std::optional<std::vector<uint8_t>> BVBase64Decode(std::string_view text);

}  // namespace brenvia
