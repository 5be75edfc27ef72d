#pragma once

// JPEG files with a depth map and a portrait matte, laid out as phones write them: the map in the
// picture's XMP as base64 (GDepth), as items appended after the picture and listed in a container
// directory, or as further pictures of a multi-picture (MPF) index.
#include "platform/imageio/image_io.h"
#include "test_support.h"

#include <functional>
#include <string>
#include <vector>

namespace brenvia::imageio::testing {

using Bytes = std::vector<uint8_t>;

// A w x h JPEG whose red, green and blue all hold value(x, y).
inline Bytes greyJPEG(size_t w, size_t h, const std::function<uint8_t(size_t, size_t)>& value) {
  auto bitmap = test::makeBitmap(w, h, [&](size_t x, size_t y) {
    const uint8_t v = value(x, y);
    return std::array<uint8_t, 4>{v, v, v, 255};
  });
  Bytes bytes;
  encodeJPEG(*bitmap, {}, bytes);
  return bytes;
}

inline Bytes segment(uint8_t marker, const std::string& payload) {
  const size_t length = payload.size() + 2;
  Bytes out{0xff, marker, uint8_t(length >> 8), uint8_t(length)};
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

// The JPEG with the segments placed right after its start-of-image marker.
inline Bytes withSegments(const Bytes& jpeg, const std::vector<Bytes>& segments) {
  Bytes out(jpeg.begin(), jpeg.begin() + 2);
  for (const Bytes& s : segments) out.insert(out.end(), s.begin(), s.end());
  out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
  return out;
}

inline Bytes xmpSegment(const std::string& description) {
  return segment(0xe1, std::string("http://ns.adobe.com/xap/1.0/\0", 29) +
                           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF>" + description + "</rdf:RDF></x:xmpmeta>");
}

// One chunk of extended XMP holding the whole packet; `offset` and `total` may be made to lie.
inline Bytes extendedXMPSegment(const std::string& packet, uint32_t offset = 0, uint32_t total = 0) {
  if (total == 0) total = uint32_t(packet.size());
  std::string payload("http://ns.adobe.com/xmp/extension/\0", 35);
  payload += std::string(32, 'A');
  for (uint32_t v : {total, offset})
    for (int shift = 24; shift >= 0; shift -= 8) payload += char(v >> shift);
  return segment(0xe1, payload + packet);
}

inline std::string base64(const Bytes& bytes) {
  static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const uint32_t n = uint32_t(bytes[i]) << 16 | (i + 1 < bytes.size() ? uint32_t(bytes[i + 1]) << 8 : 0) |
                       (i + 2 < bytes.size() ? bytes[i + 2] : 0);
    out += digits[n >> 18 & 63];
    out += digits[n >> 12 & 63];
    out += i + 1 < bytes.size() ? digits[n >> 6 & 63] : '=';
    out += i + 2 < bytes.size() ? digits[n & 63] : '=';
  }
  return out;
}

// The main picture followed by the items of a container directory listing them.
inline Bytes containerJPEG(const Bytes& main, const Bytes& depth, const Bytes& matte, size_t depthLength = 0) {
  const std::string items =
      "<rdf:Description xmlns:Container=\"http://ns.google.com/photos/1.0/container/\" "
      "xmlns:Item=\"http://ns.google.com/photos/1.0/container/item/\"><Container:Directory><rdf:Seq>"
      "<rdf:li><Container:Item Item:Semantic=\"Primary\" Item:Mime=\"image/jpeg\"/></rdf:li>"
      "<rdf:li><Container:Item Item:Semantic=\"Depth\" Item:Mime=\"image/jpeg\" Item:Length=\"" +
      std::to_string(depthLength ? depthLength : depth.size()) +
      "\"/></rdf:li>"
      "<rdf:li><Container:Item Item:Semantic=\"PortraitMatte\" Item:Mime=\"image/jpeg\" Item:Length=\"" +
      std::to_string(matte.size()) + "\"/></rdf:li></rdf:Seq></Container:Directory></rdf:Description";
  Bytes out = withSegments(main, {xmpSegment(items)});
  out.insert(out.end(), depth.begin(), depth.end());
  out.insert(out.end(), matte.begin(), matte.end());
  return out;
}

// The main picture with a multi-picture index whose second picture is `secondary`; `shift` moves
// the second picture's stated offset.
inline Bytes mpfJPEG(const Bytes& main, const Bytes& secondary, int64_t shift = 0) {
  auto le32 = [](std::string& s, uint32_t v) {
    for (int i = 0; i < 4; ++i) s += char(v >> (8 * i));
  };
  auto le16 = [](std::string& s, uint16_t v) { s += char(v), s += char(v >> 8); };
  // The index is the first segment: its TIFF header starts after SOI, marker, length and "MPF\0".
  const size_t header = 2 + 4 + 4;
  std::string tiff = "II*";
  tiff += '\0';
  le32(tiff, 8);
  le16(tiff, 1);
  le16(tiff, 0xb002), le16(tiff, 7), le32(tiff, 32), le32(tiff, 26);
  le32(tiff, 0);
  const size_t mainSize = main.size() + 4 + 4 + tiff.size() + 32;
  le32(tiff, 0x030000), le32(tiff, uint32_t(mainSize)), le32(tiff, 0), le32(tiff, 0);
  le32(tiff, 0), le32(tiff, uint32_t(secondary.size())), le32(tiff, uint32_t(int64_t(mainSize - header) + shift));
  le32(tiff, 0);
  Bytes out = withSegments(main, {segment(0xe2, std::string("MPF\0", 4) + tiff)});
  out.insert(out.end(), secondary.begin(), secondary.end());
  return out;
}

}  // namespace brenvia::imageio::testing
