#pragma once

// HEIF files with an auxiliary map, as cameras write them. libheif cannot write auxiliary images,
// so the map is stored as the thumbnail of the main picture with a colour profile of a chosen
// size; the file is then patched in place, keeping every size and offset: the "thmb" reference
// becomes "auxl" and the profile's "colr" box becomes an "auxC" box naming the map's type.

#include <libheif/heif.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace brenvia::imageio::testing {

inline constexpr const char* kDepthAuxType = "urn:mpeg:hevc:2015:auxid:2";
inline constexpr const char* kMatteAuxType = "urn:com:apple:photo:2018:aux:portraiteffectsmatte";

inline heif_error appendHeifBytes(heif_context*, const void* data, size_t size, void* user) {
  auto* out = static_cast<std::vector<uint8_t>*>(user);
  out->insert(out->end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
  return {heif_error_Ok, heif_suberror_Unspecified, "Success"};
}

// An 8-bit heif_image: RGB, or grey when `gray`, filled by value(x, y, channel).
template <typename Fill>
heif_image* makeHeifImage(int w, int h, bool gray, Fill value) {
  heif_image* image = nullptr;
  heif_image_create(w, h, gray ? heif_colorspace_monochrome : heif_colorspace_RGB,
                    gray ? heif_chroma_monochrome : heif_chroma_interleaved_RGB, &image);
  heif_channel channel = gray ? heif_channel_Y : heif_channel_interleaved;
  heif_image_add_plane(image, channel, w, h, 8);
  int stride = 0;
  uint8_t* plane = heif_image_get_plane(image, channel, &stride);
  const int channels = gray ? 1 : 3;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < channels; ++c) plane[y * stride + x * channels + c] = value(x, y, c);
  return image;
}

// A w x h HEIF picture with a (w/2) x (h/2) grey map of the given auxiliary type (none when
// auxType is null). The map is a horizontal ramp.
inline std::vector<uint8_t> heifWithAuxiliary(int w, int h, const char* auxType) {
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder);
  heif_encoder_set_lossy_quality(encoder, 90);
  heif_image* main = makeHeifImage(w, h, false, [](int x, int y, int c) { return uint8_t(c == 0 ? 200 : 60 + c * 20); });
  heif_image_handle* mainHandle = nullptr;
  heif_context_encode_image(context, main, encoder, nullptr, &mainHandle);
  const std::string type = auxType ? auxType : "";
  // The placeholder profile is exactly as large as the auxC box that replaces it.
  const size_t profileSize = 4 + type.size() + 1 + 8;
  if (auxType) {
    heif_image* map = makeHeifImage(w / 2, h / 2, true, [w](int x, int, int) { return uint8_t(x * 255 / (w / 2 - 1)); });
    std::vector<uint8_t> placeholder(profileSize, 0x5a);
    heif_image_set_raw_color_profile(map, "prof", placeholder.data(), placeholder.size());
    heif_image_handle* mapHandle = nullptr;
    heif_context_encode_image(context, map, encoder, nullptr, &mapHandle);
    heif_context_assign_thumbnail(context, mapHandle, mainHandle);
    heif_image_handle_release(mapHandle);
    heif_image_release(map);
  }
  std::vector<uint8_t> bytes;
  heif_writer writer{1, appendHeifBytes};
  heif_context_write(context, &writer, &bytes);
  heif_image_handle_release(mainHandle);
  heif_image_release(main);
  heif_encoder_release(encoder);
  heif_context_free(context);
  if (!auxType) return bytes;

  auto find = [&](std::string_view what) {
    return std::search(bytes.begin(), bytes.end(), what.begin(), what.end(),
                       [](uint8_t a, char b) { return a == uint8_t(b); });
  };
  auto reference = find("thmb");
  auto colr = find("colrprof");
  EXPECT_TRUE(reference != bytes.end() && colr != bytes.end());
  if (reference == bytes.end() || colr == bytes.end()) return {};
  std::memcpy(&*reference, "auxl", 4);
  std::vector<uint8_t> auxC = {'a', 'u', 'x', 'C', 0, 0, 0, 0};
  auxC.insert(auxC.end(), type.begin(), type.end());
  auxC.resize(4 + 4 + profileSize, 0);  // type, its NUL and empty subtype bytes
  std::copy(auxC.begin(), auxC.end(), colr);
  return bytes;
}

}  // namespace brenvia::imageio::testing
