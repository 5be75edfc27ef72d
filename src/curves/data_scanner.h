#pragma once

// A cursor over an immutable block of bytes: 16-bit numbers for binary formats, and text scanning
// for the same cursor. The cursor may be set anywhere; past the end, single characters read as 0
// and every other scan fails.

#include "platform/foundation/value.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

using BVData = std::shared_ptr<const std::vector<uint8_t>>;

enum CDataScannerEndianness : int32_t {
  CDataScannerEndiannessNative = 0,
  CDataScannerEndiannessLittle = 1,
  CDataScannerEndiannessBig = 2,
};

class CDataScanner {
 public:
  CDataScanner() = default;
  explicit CDataScanner(BVData data) { setData(std::move(data)); }

  const BVData& data() const { return data_; }
  // Stores the block and puts the cursor at its start; null empties the scanner.
  void setData(BVData data);

  uint64_t scanLocation() const { return location_; }
  void setScanLocation(uint64_t location) { location_ = location; }
  uint64_t bytesRemaining() const { return location_ < length_ ? length_ - location_ : 0; }
  bool isAtEnd() const { return location_ >= length_; }
  int32_t endianness() const { return endianness_; }
  void setEndianness(int32_t endianness) { endianness_ = endianness; }

  uint16_t currentCharacter() const { return isAtEnd() ? 0 : start_[location_]; }
  uint16_t scanCharacter() {
    uint16_t c = currentCharacter();
    ++location_;
    return c;
  }
  bool scanCharacter(uint16_t character);
  // The bytes of `text` at the cursor, in full; the cursor moves past them.
  bool scanUTF8String(std::string_view text, std::string* into = nullptr);
  bool scanString(const std::string& text, std::string* into = nullptr);
  // Bytes while each is one of `set`; false when none is.
  bool scanCharactersFromSet(std::string_view set, std::string* into = nullptr);
  // Bytes until one of `set` or the end; false when none is consumed.
  bool scanUpToCharactersFromSet(std::string_view set, std::string* into = nullptr);
  // Bytes up to where `text` starts (searching no further than a zero byte); false when it is not
  // there, the cursor unmoved.
  bool scanUpToString(std::string_view text, std::string* into = nullptr);
  // Characters of "0123456789eE-+.": a decimal with ".", else a signed integer with "-", else an
  // unsigned one in automatic base (a leading 0 reads octal).
  bool scanNumber(Value* into = nullptr);
  bool scanDecimalNumber(double* into = nullptr);
  // `length` bytes: a pointer into the block itself, or a copy.
  bool scanDataOfLength(uint64_t length, const uint8_t** into);
  bool scanDataOfLength(uint64_t length, BVData* into);
  void skipWhitespace();
  std::string remainingString() const;
  BVData remainingData() const;
  // Two bytes in the scanner's byte order; false, the cursor unmoved, when fewer remain.
  bool scanIntoShort(int16_t* into);

 private:
  bool scanRun(std::string_view set, bool members, std::string* into);
  const uint8_t* cursor() const { return start_ + std::min(location_, length_); }
  const uint8_t* end() const { return start_ + length_; }

  BVData data_;
  const uint8_t* start_ = nullptr;
  uint64_t location_ = 0, length_ = 0;
  int32_t endianness_ = CDataScannerEndiannessNative;
};

}  // namespace brenvia
