#include "curves/data_scanner.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace brenvia {
namespace {

constexpr std::string_view kNumberCharacters = "0123456789eE-+.";
constexpr std::string_view kWhitespace = " \t\n\v\f\r";

bool isMember(std::string_view set, uint8_t byte) { return set.find(char(byte)) != std::string_view::npos; }

}  // namespace

void CDataScanner::setData(BVData data) {
  data_ = std::move(data);
  start_ = data_ ? data_->data() : nullptr;
  length_ = data_ ? data_->size() : 0;
  location_ = 0;
}

bool CDataScanner::scanCharacter(uint16_t character) {
  if (isAtEnd() || currentCharacter() != character) return false;
  ++location_;
  return true;
}

bool CDataScanner::scanUTF8String(std::string_view text, std::string* into) {
  if (bytesRemaining() < text.size() || std::memcmp(cursor(), text.data(), text.size()) != 0) return false;
  location_ += text.size();
  if (into) *into = std::string(text);
  return true;
}

bool CDataScanner::scanString(const std::string& text, std::string* into) { return scanUTF8String(text, into); }

bool CDataScanner::scanRun(std::string_view set, bool members, std::string* into) {
  const uint8_t* from = cursor();
  const uint8_t* to = std::find_if(from, end(), [&](uint8_t c) { return isMember(set, c) != members; });
  if (to == from) return false;
  if (into) into->assign(reinterpret_cast<const char*>(from), size_t(to - from));
  location_ += uint64_t(to - from);
  return true;
}

bool CDataScanner::scanCharactersFromSet(std::string_view set, std::string* into) { return scanRun(set, true, into); }

bool CDataScanner::scanUpToCharactersFromSet(std::string_view set, std::string* into) {
  return scanRun(set, false, into);
}

bool CDataScanner::scanUpToString(std::string_view text, std::string* into) {
  const uint8_t* from = cursor();
  const uint8_t* stop = std::find(from, end(), uint8_t{0});
  const uint8_t* found =
      std::search(from, stop, text.begin(), text.end(), [](uint8_t a, char b) { return a == uint8_t(b); });
  if (text.empty() || found == stop) return false;
  if (into) into->assign(reinterpret_cast<const char*>(from), size_t(found - from));
  location_ += uint64_t(found - from);
  return true;
}

bool CDataScanner::scanNumber(Value* into) {
  std::string text;
  if (!scanCharactersFromSet(kNumberCharacters, &text)) return false;
  if (!into) return true;
  if (text.find('.') != std::string::npos) {
    *into = std::strtod(text.c_str(), nullptr);
  } else if (text.find('-') != std::string::npos) {
    *into = int64_t(std::strtoll(text.c_str(), nullptr, 10));
  } else {
    *into = uint64_t(std::strtoull(text.c_str(), nullptr, 0));
  }
  return true;
}

bool CDataScanner::scanDecimalNumber(double* into) {
  std::string text;
  if (!scanCharactersFromSet(kNumberCharacters, &text)) return false;
  if (into) *into = std::strtod(text.c_str(), nullptr);
  return true;
}

bool CDataScanner::scanDataOfLength(uint64_t length, const uint8_t** into) {
  if (bytesRemaining() < length) return false;
  if (into) *into = cursor();
  location_ += length;
  return true;
}

bool CDataScanner::scanDataOfLength(uint64_t length, BVData* into) {
  const uint8_t* bytes = nullptr;
  if (!scanDataOfLength(length, &bytes)) return false;
  if (into) *into = std::make_shared<const std::vector<uint8_t>>(bytes, bytes + length);
  return true;
}

void CDataScanner::skipWhitespace() {
  scanCharactersFromSet(kWhitespace);
}

std::string CDataScanner::remainingString() const {
  const char* from = reinterpret_cast<const char*>(cursor());
  return std::string(from, from + bytesRemaining());
}

BVData CDataScanner::remainingData() const {
  return std::make_shared<const std::vector<uint8_t>>(cursor(), end());
}

bool CDataScanner::scanIntoShort(int16_t* into) {
  if (bytesRemaining() < 2) return false;
  const uint8_t a = cursor()[0], b = cursor()[1];
  location_ += 2;
  if (!into) return true;
  switch (endianness_) {
    case CDataScannerEndiannessNative:
    case CDataScannerEndiannessLittle: *into = int16_t(uint16_t(a | b << 8)); break;
    case CDataScannerEndiannessBig: *into = int16_t(uint16_t(a << 8 | b)); break;
    default: break;
  }
  return true;
}

}  // namespace brenvia
