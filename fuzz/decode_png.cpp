// libFuzzer target: the PNG decoder (chunks, palettes, transparency, 16-bit, iCCP, eXIf).

#include "fuzz_check.h"

#include <cstring>
#include <vector>

namespace {

uint32_t crc32(const uint8_t* p, size_t n) {
  uint32_t crc = 0xffffffffu;
  for (size_t i = 0; i < n; ++i) {
    crc ^= p[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
  }
  return ~crc;
}

// Rewrites every chunk checksum, so mutations inside chunks reach the chunk parsers instead of
// stopping at the CRC check.
void fixChecksums(std::vector<uint8_t>& png) {
  size_t i = 8;
  while (i + 12 <= png.size()) {
    size_t length = size_t{png[i]} << 24 | size_t{png[i + 1]} << 16 | size_t{png[i + 2]} << 8 | png[i + 3];
    if (length > png.size() - i - 12) break;
    uint32_t crc = crc32(&png[i + 4], length + 4);
    for (int b = 0; b < 4; ++b) png[i + 8 + length + b] = static_cast<uint8_t>(crc >> (24 - 8 * b));
    i += 12 + length;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Inputs without the PNG signature would go to another decoder; keep them out of the corpus.
  if (size < 8 || std::memcmp(data, "\x89PNG\r\n\x1a\n", 8) != 0) return -1;
  std::vector<uint8_t> png(data, data + size);
  fixChecksums(png);
  brenvia::imageio::fuzzing::decodeAndCheck(png.data(), png.size(), true);
  return 0;
}
