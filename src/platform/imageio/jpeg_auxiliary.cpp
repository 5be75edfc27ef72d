// Depth maps and portrait mattes that phones store beside the main picture of a JPEG file: as
// base64 data in the picture's XMP (GDepth), as items appended after the picture and listed in a
// container directory of the XMP, or as further images of a multi-picture (MPF) index whose own
// XMP names their kind.
#include "platform/imageio/codec_internal.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia::imageio::detail {
namespace {

constexpr std::string_view kXMPSignature{"http://ns.adobe.com/xap/1.0/\0", 29};
constexpr std::string_view kExtendedXMPSignature{"http://ns.adobe.com/xmp/extension/\0", 35};
constexpr std::string_view kMPFSignature{"MPF\0", 4};
// Extended XMP above this size is refused rather than allocated.
constexpr size_t kMaximumExtendedXMP = 64u << 20;

using Bytes = std::basic_string_view<uint8_t>;

uint32_t bigEndian(const uint8_t* p, size_t n) {
  uint32_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

std::string_view text(Bytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

// What the segments before the first scan hold, and where the picture ends.
struct JPEGLayout {
  std::string xmp;
  std::string extendedXMP;
  std::optional<size_t> mpfHeader;  // offset of the MPF index's TIFF header in the file
  size_t end = 0;                   // one past the end-of-image marker
};

bool addExtendedXMP(Bytes payload, JPEGLayout& layout, std::string& why) {
  if (payload.size() < 40) {
    why = "JPEG: extended XMP segment is too short";
    return false;
  }
  const uint32_t total = bigEndian(payload.data() + 32, 4), offset = bigEndian(payload.data() + 36, 4);
  const Bytes chunk = payload.substr(40);
  if (total > kMaximumExtendedXMP || offset > total || chunk.size() > total - offset) {
    why = "JPEG: extended XMP chunk lies outside its stated length";
    return false;
  }
  if (layout.extendedXMP.empty()) layout.extendedXMP.assign(total, ' ');
  if (layout.extendedXMP.size() != total) {
    why = "JPEG: extended XMP chunks disagree about its length";
    return false;
  }
  std::memcpy(layout.extendedXMP.data() + offset, chunk.data(), chunk.size());
  return true;
}

// Skips entropy-coded data from `at` to the next marker; the position of its 0xFF, or none.
std::optional<size_t> nextMarker(Bytes file, size_t at) {
  for (; at + 1 < file.size(); ++at) {
    if (file[at] != 0xff) continue;
    const uint8_t m = file[at + 1];
    if (m != 0x00 && m != 0xff && !(m >= 0xd0 && m <= 0xd7)) return at;
  }
  return std::nullopt;
}

std::optional<JPEGLayout> readLayout(Bytes file, std::string& why) {
  if (file.size() < 4 || file[0] != 0xff || file[1] != 0xd8) {
    why = "JPEG: no start-of-image marker";
    return std::nullopt;
  }
  JPEGLayout layout;
  size_t at = 2;
  while (true) {
    while (at < file.size() && file[at] == 0xff && at + 1 < file.size() && file[at + 1] == 0xff) ++at;
    if (at + 2 > file.size() || file[at] != 0xff) {
      why = "JPEG: the picture ends before its end-of-image marker";
      return std::nullopt;
    }
    const uint8_t marker = file[at + 1];
    if (marker == 0xd9) {
      layout.end = at + 2;
      return layout;
    }
    if (marker == 0x01 || (marker >= 0xd0 && marker <= 0xd7)) {
      at += 2;
      continue;
    }
    if (at + 4 > file.size()) {
      why = "JPEG: segment header is cut off";
      return std::nullopt;
    }
    const size_t length = bigEndian(&file[at + 2], 2);
    if (length < 2 || at + 2 + length > file.size()) {
      why = "JPEG: segment runs past the end of the file";
      return std::nullopt;
    }
    const Bytes payload = file.substr(at + 4, length - 2);
    if (marker == 0xe1 && text(payload).starts_with(kXMPSignature)) {
      layout.xmp.assign(text(payload.substr(kXMPSignature.size())));
    } else if (marker == 0xe1 && text(payload).starts_with(kExtendedXMPSignature)) {
      if (!addExtendedXMP(payload.substr(kExtendedXMPSignature.size()), layout, why)) return std::nullopt;
    } else if (marker == 0xe2 && text(payload).starts_with(kMPFSignature) && !layout.mpfHeader) {
      layout.mpfHeader = at + 4 + kMPFSignature.size();
    }
    at += 2 + length;
    if (marker == 0xda) {
      std::optional<size_t> next = nextMarker(file, at);
      if (!next) {
        why = "JPEG: the picture ends before its end-of-image marker";
        return std::nullopt;
      }
      at = *next;
    }
  }
}

// The value of an XMP property written as attribute (name="value") or element (<name>value</name>).
std::optional<std::string> xmpProperty(std::string_view xmp, std::string_view name, size_t from = 0,
                                       size_t to = std::string_view::npos) {
  xmp = xmp.substr(0, to);
  for (size_t at = xmp.find(name, from); at != std::string_view::npos; at = xmp.find(name, at + 1)) {
    const char before = at > 0 ? xmp[at - 1] : ' ';
    if (before != ' ' && before != '\n' && before != '\t' && before != '\r' && before != '<') continue;
    size_t after = at + name.size();
    if (before == '<') {
      const size_t close = xmp.find('>', after);
      const size_t end = xmp.find('<', close);
      if (close == std::string_view::npos || end == std::string_view::npos) return std::nullopt;
      return std::string(xmp.substr(close + 1, end - close - 1));
    }
    while (after < xmp.size() && xmp[after] == ' ') ++after;
    if (after + 1 >= xmp.size() || xmp[after] != '=') continue;
    ++after;
    while (after < xmp.size() && xmp[after] == ' ') ++after;
    const char quote = after < xmp.size() ? xmp[after] : 0;
    if (quote != '"' && quote != '\'') continue;
    const size_t end = xmp.find(quote, after + 1);
    if (end == std::string_view::npos) return std::nullopt;
    return std::string(xmp.substr(after + 1, end - after - 1));
  }
  return std::nullopt;
}

std::optional<double> xmpNumber(std::string_view xmp, std::string_view name) {
  std::optional<std::string> value = xmpProperty(xmp, name);
  if (!value) return std::nullopt;
  char* end = nullptr;
  const double number = std::strtod(value->c_str(), &end);
  return end != value->c_str() && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

std::optional<std::vector<uint8_t>> base64Decoded(std::string_view encoded) {
  std::vector<uint8_t> out;
  uint32_t bits = 0;
  int count = 0;
  size_t padding = 0;
  for (char c : encoded) {
    int value;
    if (c >= 'A' && c <= 'Z')
      value = c - 'A';
    else if (c >= 'a' && c <= 'z')
      value = c - 'a' + 26;
    else if (c >= '0' && c <= '9')
      value = c - '0' + 52;
    else if (c == '+')
      value = 62;
    else if (c == '/')
      value = 63;
    else if (c == '=') {
      ++padding;
      continue;
    } else if (c == ' ' || c == '\n' || c == '\r' || c == '\t')
      continue;
    else
      return std::nullopt;
    if (padding) return std::nullopt;
    bits = bits << 6 | uint32_t(value);
    if (++count == 4) {
      out.insert(out.end(), {uint8_t(bits >> 16), uint8_t(bits >> 8), uint8_t(bits)});
      bits = 0, count = 0;
    }
  }
  if (count == 1 || padding > 2) return std::nullopt;
  if (count == 2) out.push_back(uint8_t(bits >> 4));
  if (count == 3) out.insert(out.end(), {uint8_t(bits >> 10), uint8_t(bits >> 2)});
  return out;
}

// An encoded map found in the file, with the planes of its distances when it stores distance.
struct FoundMap {
  Bytes inFile;
  std::vector<uint8_t> decoded;  // for maps stored as base64
  std::optional<std::pair<double, double>> uniformDepthPlanes;

  Bytes encoded() const { return decoded.empty() ? inFile : Bytes(decoded.data(), decoded.size()); }
};

bool isMatte(std::string_view kind) {
  std::string lower(kind);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return lower.find("matte") != std::string::npos;
}

bool isDepth(std::string_view kind) {
  std::string lower(kind);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return !isMatte(kind) && (lower.find("depth") != std::string::npos || lower.find("disparity") != std::string::npos ||
                            lower.find("auxid:2") != std::string::npos);
}

// GDepth in the (extended) XMP: the map as base64 data, storing inverse or linear distance.
std::optional<FoundMap> gdepthMap(const JPEGLayout& layout, std::string& why) {
  for (const std::string* xmp : {&layout.extendedXMP, &layout.xmp}) {
    std::optional<std::string> data = xmpProperty(*xmp, "GDepth:Data");
    if (!data) continue;
    FoundMap map;
    std::optional<std::vector<uint8_t>> bytes = base64Decoded(*data);
    if (!bytes || bytes->empty()) {
      why = "JPEG: the GDepth data is not valid base64";
      return std::nullopt;
    }
    map.decoded = std::move(*bytes);
    const std::string format = xmpProperty(layout.xmp, "GDepth:Format").value_or("RangeInverse");
    if (format == "RangeLinear") {
      const std::optional<double> nearPlane = xmpNumber(layout.xmp, "GDepth:Near");
      const std::optional<double> farPlane = xmpNumber(layout.xmp, "GDepth:Far");
      if (!nearPlane || !farPlane || !(*nearPlane > 0 && *nearPlane < *farPlane)) {
        why = "JPEG: GDepth linear range needs planes with 0 < Near < Far";
        return std::nullopt;
      }
      map.uniformDepthPlanes = std::pair(*nearPlane, *farPlane);
    } else if (format != "RangeInverse") {
      why = "JPEG: unknown GDepth format `" + format + "`";
      return std::nullopt;
    }
    return map;
  }
  return FoundMap{};
}

// Items of a container directory follow the main picture in the order listed.
std::optional<FoundMap> containerMap(Bytes file, const JPEGLayout& layout, AuxiliaryImage which, std::string& why) {
  const std::string_view xmp = layout.xmp;
  size_t offset = layout.end;
  bool primary = true;
  for (size_t at = xmp.find("<Container:Item"); at != std::string_view::npos;
       at = xmp.find("<Container:Item", at + 1)) {
    const size_t close = xmp.find('>', at);
    const std::string semantic = xmpProperty(xmp, "Item:Semantic", at, close).value_or("");
    if (primary) {
      primary = false;
      if (semantic == "Primary") continue;
    }
    const std::optional<std::string> lengthText = xmpProperty(xmp, "Item:Length", at, close);
    char* end = nullptr;
    const unsigned long long length = lengthText ? std::strtoull(lengthText->c_str(), &end, 10) : 0;
    if (!lengthText || end == lengthText->c_str() || length == 0 || length > file.size() - offset) {
      why = "JPEG: container item `" + semantic + "` lies outside the file";
      return std::nullopt;
    }
    if (which == AuxiliaryImage::Disparity ? isDepth(semantic) : isMatte(semantic)) {
      return FoundMap{file.substr(offset, size_t(length)), {}, {}};
    }
    offset += size_t(length);
  }
  return FoundMap{};
}

// The pictures of a multi-picture index after the first, each classified by its own XMP.
std::optional<FoundMap> mpfMap(Bytes file, const JPEGLayout& layout, AuxiliaryImage which, std::string& why) {
  if (!layout.mpfHeader) return FoundMap{};
  const size_t header = *layout.mpfHeader;
  const Bytes tiff = file.substr(header);
  why = "JPEG: the multi-picture index is malformed";
  if (tiff.size() < 8) return std::nullopt;
  const bool little = tiff[0] == 'I' && tiff[1] == 'I';
  if (!little && !(tiff[0] == 'M' && tiff[1] == 'M')) return std::nullopt;
  const auto read = [&](size_t at, size_t n) -> std::optional<uint32_t> {
    if (at > tiff.size() || n > tiff.size() - at) return std::nullopt;
    uint32_t v = 0;
    for (size_t i = 0; i < n; ++i) v |= uint32_t(tiff[at + i]) << (8 * (little ? i : n - 1 - i));
    return v;
  };
  const std::optional<uint32_t> ifd = read(4, 4);
  const std::optional<uint32_t> count = ifd ? read(*ifd, 2) : std::nullopt;
  if (!count) return std::nullopt;
  std::optional<uint32_t> entries, entriesSize;
  for (uint32_t i = 0; i < *count; ++i) {
    const size_t at = size_t(*ifd) + 2 + 12 * size_t(i);
    std::optional<uint32_t> tag = read(at, 2);
    if (!tag) return std::nullopt;
    if (*tag == 0xb002) entriesSize = read(at + 4, 4), entries = read(at + 8, 4);
  }
  if (!entries || !entriesSize || *entriesSize % 16) return std::nullopt;
  for (uint32_t e = 1; e < *entriesSize / 16; ++e) {
    const size_t at = size_t(*entries) + 16 * size_t(e);
    const std::optional<uint32_t> size = read(at + 4, 4), start = read(at + 8, 4);
    if (!size || !start || *start > tiff.size() || *size > tiff.size() - *start || *size < 4) return std::nullopt;
    const Bytes picture = tiff.substr(*start, *size);
    std::string ignored;
    std::optional<JPEGLayout> inner = readLayout(picture, ignored);
    if (!inner) continue;
    const std::string kind = inner->xmp + inner->extendedXMP;
    if (which == AuxiliaryImage::Disparity ? isDepth(kind) : isMatte(kind)) {
      why.clear();
      return FoundMap{picture, {}, {}};
    }
  }
  why.clear();
  return FoundMap{};
}

// The first channel of a decoded picture as untagged grey.
CGImageRef greyOf(const CGImage& picture) {
  const size_t step = CGPixelFormatBytesPerPixel(picture.format());
  const bool sixteen = picture.format() == CGPixelFormat::Gray16 || picture.format() == CGPixelFormat::RGB16 ||
                       picture.format() == CGPixelFormat::RGBA16;
  if (picture.format() == CGPixelFormat::RGBAFloatPremultiplied) return nullptr;
  PixelBuffer pixels;
  if (!pixels.allocate(picture.width(), picture.height(), CGPixelFormat::Gray8)) return nullptr;
  for (size_t y = 0; y < picture.height(); ++y) {
    const uint8_t* in = picture.row(y);
    uint8_t* out = pixels.row(y);
    // 16-bit samples are stored in native order; their high byte is enough for a map.
    for (size_t x = 0; x < picture.width(); ++x) out[x] = sixteen ? uint8_t(in[x * step + 1]) : in[x * step];
  }
  return pixels.finish(nullptr);
}

}  // namespace

bool readJPEGAuxiliary(const uint8_t* data, size_t size, AuxiliaryImage which, std::string_view name, DecodedImage& out,
                       std::string& why) {
  const Bytes file(data, size);
  std::optional<JPEGLayout> layout = readLayout(file, why);
  if (!layout) return false;
  std::optional<FoundMap> found;
  if (which == AuxiliaryImage::Disparity) {
    found = gdepthMap(*layout, why);
    if (!found) return false;
  }
  if (!found || found->encoded().empty()) found = containerMap(file, *layout, which, why);
  if (!found) return false;
  if (found->encoded().empty()) found = mpfMap(file, *layout, which, why);
  if (!found) return false;
  const Bytes encoded = found->encoded();
  if (encoded.empty()) return true;
  // A map that is no readable picture has had its line from the decoder.
  std::optional<DecodedImage> decoded =
      decodeData(encoded.data(), encoded.size(), {}, std::string(name) + " (stored map)");
  if (!decoded) return false;
  CGImageRef grey = greyOf(*decoded->image);
  if (grey && found->uniformDepthPlanes) {
    grey = disparityFromUniformDepth(*grey, found->uniformDepthPlanes->first, found->uniformDepthPlanes->second);
  }
  if (!grey) {
    why = "JPEG: the stored map could not be converted";
    return false;
  }
  out.image = grey;
  out.properties = baseProperties(grey->width(), grey->height());
  return true;
}

}  // namespace brenvia::imageio::detail
