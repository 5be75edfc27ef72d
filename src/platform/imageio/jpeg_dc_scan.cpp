#include "platform/imageio/jpeg_dc_scan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace brenvia::imageio::detail {
namespace {

constexpr int kLookBits = 9;

// A Huffman table as decoding needs it: codes up to kLookBits long straight from a table indexed
// by the next bits, longer ones by their length.
struct HuffmanDecoder {
  std::array<uint8_t, 1 << kLookBits> lookLength{};  // 0: longer code
  std::array<uint8_t, 1 << kLookBits> lookSymbol{};
  std::array<int32_t, 18> maxCode{};  // largest code of each length, -1 when none
  std::array<int32_t, 17> valueOffset{};
  std::array<uint8_t, 256> values{};
  // For AC tables: the bits a short code and its magnitude bits take together (low byte; 0 for a
  // longer code), and how far the coefficient index moves (high byte; 0 at the end of the block).
  std::array<uint16_t, 1 << kLookBits> shortCode{};

  bool build(const JHUFF_TBL* table) {
    if (!table) return false;
    int32_t code = 0;
    size_t k = 0;
    for (int length = 1; length <= 16; ++length) {
      const int count = table->bits[length];
      valueOffset[length] = int32_t(k) - code;
      if (k + size_t(count) > values.size()) return false;
      for (int i = 0; i < count; ++i, ++k, ++code) {
        if (code >= (1 << length)) return false;  // more codes than the length can hold
        values[k] = table->huffval[k];
        if (length <= kLookBits) {
          const int shift = kLookBits - length;
          for (int fill = 0; fill < (1 << shift); ++fill) {
            const size_t at = size_t((code << shift) | fill);
            const uint8_t symbol = table->huffval[k];
            lookLength[at] = uint8_t(length);
            lookSymbol[at] = symbol;
            const int advance = (symbol & 15) ? (symbol >> 4) + 1 : symbol == 0xf0 ? 16 : 0;
            shortCode[at] = uint16_t(advance << 8 | (length + (symbol & 15)));
          }
        }
      }
      maxCode[length] = count ? code - 1 : -1;
      code <<= 1;
    }
    maxCode[17] = 0x7fffffff;  // ends the search for codes that do not exist
    return true;
  }
};

// The entropy-coded bits, with stuffed zero bytes removed. At a marker, zero bits follow.
class BitReader {
 public:
  BitReader(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}

  void refill() {
    // Eight bytes at once when none of them is 0xff: whole bytes are appended, and the bits of a
    // partial one below them are the same bits the next refill puts there.
    if (end_ - p_ >= 8) {
      uint64_t word;
      std::memcpy(&word, p_, 8);
      word = __builtin_bswap64(word);
      const uint64_t inverted = ~word;
      if (((inverted - 0x0101010101010101ull) & ~inverted & 0x8080808080808080ull) == 0) {
        buffer_ |= word >> bits_;
        const int bytes = (63 - bits_) >> 3;
        p_ += bytes;
        bits_ += bytes * 8;
        return;
      }
    }
    while (bits_ <= 56) {
      uint32_t byte = 0;
      if (p_ < end_ && !atMarker()) {
        byte = *p_++;
        if (byte == 0xff) ++p_;  // the stuffed zero
      } else {
        ++padding_;
      }
      buffer_ |= uint64_t(byte) << (56 - bits_);
      bits_ += 8;
    }
  }
  uint32_t peek(int n) const { return uint32_t(buffer_ >> (64 - n)); }
  void drop(int n) {
    buffer_ <<= n;
    bits_ -= n;
  }
  // Bits refilled past the end of the data: more than a few bytes means the data ran out.
  bool ranOut() const { return padding_ > 8; }

  // Moves past the restart marker that must come now, discarding the padding bits before it.
  bool restart(int expected) {
    buffer_ = 0;
    bits_ = 0;
    padding_ = 0;
    if (p_ < end_ && !atMarker()) ++p_;  // a last byte of padding not read yet
    if (end_ - p_ < 2 || p_[0] != 0xff || p_[1] != 0xd0 + expected) return false;
    p_ += 2;
    return true;
  }

  // The next symbol; -1 for a code that the table does not have.
  int decode(const HuffmanDecoder& h) {
    if (bits_ < 32) refill();
    const uint32_t look = peek(kLookBits);
    if (int length = h.lookLength[look]) {
      drop(length);
      return h.lookSymbol[look];
    }
    int length = kLookBits + 1;
    int32_t code = int32_t(peek(length));
    while (code > h.maxCode[size_t(length)]) code = int32_t(peek(++length));
    const int32_t index = code + h.valueOffset[size_t(std::min(length, 16))];
    if (length > 16 || index < 0 || index >= int32_t(h.values.size())) return -1;
    drop(length);
    return h.values[size_t(index)];
  }

  // n (at most 16) bits as the signed value they code.
  int32_t receiveExtended(int n) {
    if (n == 0) return 0;
    if (bits_ < 32) refill();
    const int32_t v = int32_t(peek(n));
    drop(n);
    return v < (1 << (n - 1)) ? v - (1 << n) + 1 : v;
  }

  // Reads past an AC code of at most kLookBits bits and its magnitude: how far the coefficient
  // index moves, -1 at the end of the block, 0 for a longer code (nothing read).
  int skipShortCode(const HuffmanDecoder& h) {
    if (bits_ < 32) refill();
    const uint32_t entry = h.shortCode[peek(kLookBits)];
    if (entry == 0) return 0;
    drop(int(entry & 0xff));
    return (entry >> 8) ? int(entry >> 8) : -1;
  }

  // Reads past n bits (at most 31) without their value.
  void skip(int n) {
    if (bits_ < 32) refill();
    drop(n);
  }

 private:
  bool atMarker() const { return p_[0] == 0xff && (end_ - p_ < 2 || p_[1] != 0); }

  const uint8_t* p_;
  const uint8_t* end_;
  uint64_t buffer_ = 0;
  int bits_ = 0;
  int padding_ = 0;
};

struct ScanComponent {
  const jpeg_component_info* info;
  HuffmanDecoder dc, ac;
  int32_t quant = 0, predictor = 0;
  size_t stride = 0;           // blocks per plane row
  std::vector<uint8_t> plane;  // one sample per block
};

uint8_t clampSample(int32_t v) { return uint8_t(std::clamp(v, 0, 255)); }

// One block: its DC sample into the plane, its AC coefficients read past.
bool decodeBlock(BitReader& bits, ScanComponent& s, size_t bx, size_t by) {
  const int size = bits.decode(s.dc);
  if (size < 0 || size > 15) return false;
  s.predictor += bits.receiveExtended(size);
  // Real pictures stay within 11 bits; far beyond, the products below would overflow.
  if (s.predictor < -32767 || s.predictor > 32767) return false;
  // libjpeg's 1x1 inverse DCT: the dequantised DC divided by 8, rounded, around mid grey.
  s.plane[by * s.stride + bx] = clampSample(((s.predictor * s.quant + 4) >> 3) + 128);
  for (int k = 1; k < 64;) {
    if (const int skip = bits.skipShortCode(s.ac)) {
      if (skip < 0) break;
      k += skip;
      continue;
    }
    const int symbol = bits.decode(s.ac);
    if (symbol < 0) return false;
    const int run = symbol >> 4, magnitude = symbol & 15;
    if (magnitude) {
      bits.skip(magnitude);
      k += run + 1;
    } else if (run == 15) {
      k += 16;
    } else {
      break;
    }
  }
  return true;
}

bool takesLayout(const jpeg_decompress_struct& c, CGPixelFormat format) {
  if (c.progressive_mode || c.arith_code || c.data_precision != 8 || c.comps_in_scan != c.num_components) return false;
  if (c.Ss != 0 || c.Se != 63 || c.Ah != 0 || c.Al != 0 || c.image_width == 0 || c.image_height == 0) return false;
  const bool gray = c.num_components == 1 && c.jpeg_color_space == JCS_GRAYSCALE;
  const bool ycc = c.num_components == 3 && c.jpeg_color_space == JCS_YCbCr;
  if (!(gray && format == CGPixelFormat::Gray8) && !(ycc && format == CGPixelFormat::RGB8)) return false;
  for (int i = 0; i < c.comps_in_scan; ++i) {
    const jpeg_component_info* comp = c.cur_comp_info[i];
    // Subsampled chroma is left to libjpeg, which draws its 1/8 scale on AC coefficients too.
    if (!comp || comp->component_index < 0 || comp->component_index >= c.num_components || comp->h_samp_factor < 1 ||
        comp->h_samp_factor > 2 || comp->v_samp_factor < 1 || comp->v_samp_factor > 2 ||
        comp->h_samp_factor != c.max_h_samp_factor || comp->v_samp_factor != c.max_v_samp_factor)
      return false;
    if (comp->dc_tbl_no < 0 || comp->dc_tbl_no >= NUM_HUFF_TBLS || comp->ac_tbl_no < 0 ||
        comp->ac_tbl_no >= NUM_HUFF_TBLS)
      return false;
    if (comp->quant_tbl_no < 0 || comp->quant_tbl_no >= NUM_QUANT_TBLS || !c.quant_tbl_ptrs[comp->quant_tbl_no])
      return false;
  }
  return true;
}

// YCbCr to RGB with libjpeg's fixed-point factors and rounding.
void convertYCbCr(const std::array<const uint8_t*, 3>& in, uint8_t* out, size_t width) {
  constexpr int kBits = 16;
  constexpr int32_t kHalf = 1 << (kBits - 1);
  auto fix = [](double x) { return int32_t(x * (1 << kBits) + 0.5); };
  static const int32_t kCrR = fix(1.40200), kCbB = fix(1.77200), kCbG = fix(0.34414), kCrG = fix(0.71414);
  for (size_t x = 0; x < width; ++x, out += 3) {
    const int32_t y = in[0][x], cb = in[1][x] - 128, cr = in[2][x] - 128;
    out[0] = clampSample(y + ((kCrR * cr + kHalf) >> kBits));
    out[1] = clampSample(y + ((-kCbG * cb - kCrG * cr + kHalf) >> kBits));
    out[2] = clampSample(y + ((kCbB * cb + kHalf) >> kBits));
  }
}

}  // namespace

bool decodeDCScan(const jpeg_decompress_struct& c, const uint8_t* data, size_t size, CGPixelFormat format,
                  PixelBuffer& pixels) {
  if (!takesLayout(c, format)) return false;
  // Every component has the same sampling: an MCU holds h x v blocks of each (one block in a scan
  // of one component, whatever its factors).
  const bool single = c.comps_in_scan == 1;
  const size_t h = single ? 1 : size_t(c.max_h_samp_factor), v = single ? 1 : size_t(c.max_v_samp_factor);
  const size_t mcusPerRow = (c.image_width + 8 * h - 1) / (8 * h);
  const size_t mcuRows = (c.image_height + 8 * v - 1) / (8 * v);
  std::vector<ScanComponent> scan(size_t(c.comps_in_scan));
  for (size_t i = 0; i < scan.size(); ++i) {
    ScanComponent& s = scan[i];
    s.info = c.cur_comp_info[i];
    if (!s.dc.build(c.dc_huff_tbl_ptrs[s.info->dc_tbl_no]) || !s.ac.build(c.ac_huff_tbl_ptrs[s.info->ac_tbl_no]))
      return false;
    s.quant = c.quant_tbl_ptrs[s.info->quant_tbl_no]->quantval[0];
    s.stride = mcusPerRow * h;
    s.plane.resize(s.stride * mcuRows * v);
  }
  BitReader bits(data, size);
  const size_t restartInterval = c.restart_interval;
  size_t untilRestart = restartInterval;
  int nextRestart = 0;
  for (size_t my = 0; my < mcuRows; ++my) {
    for (size_t mx = 0; mx < mcusPerRow; ++mx) {
      if (restartInterval && untilRestart == 0) {
        if (!bits.restart(nextRestart)) return false;
        nextRestart = (nextRestart + 1) & 7;
        untilRestart = restartInterval;
        for (ScanComponent& s : scan) s.predictor = 0;
      }
      for (ScanComponent& s : scan) {
        for (size_t by = 0; by < v; ++by)
          for (size_t bx = 0; bx < h; ++bx)
            if (!decodeBlock(bits, s, mx * h + bx, my * v + by)) return false;
      }
      --untilRestart;
    }
    if (bits.ranOut()) return false;
  }
  if (bits.ranOut()) return false;
  const size_t width = (c.image_width + 7) / 8, height = (c.image_height + 7) / 8;
  if (!pixels.allocate(width, height, format)) return false;
  for (size_t y = 0; y < height; ++y) {
    std::array<const uint8_t*, 3> rows{};
    for (const ScanComponent& s : scan) rows[size_t(s.info->component_index)] = s.plane.data() + y * s.stride;
    if (format == CGPixelFormat::Gray8) {
      std::copy_n(rows[0], width, pixels.row(y));
    } else {
      convertYCbCr(rows, pixels.row(y), width);
    }
  }
  return true;
}

}  // namespace brenvia::imageio::detail
