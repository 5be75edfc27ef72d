// libFuzzer target: the depth map and portrait matte of JPEG files (XMP with extended chunks and
// base64 data, container directories, multi-picture indexes).

#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3 || data[0] != 0xff || data[1] != 0xd8 || data[2] != 0xff) return -1;
  static const bool quiet = [] {
    brenvia::BVSetLogHandler([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  for (auto which : {brenvia::imageio::AuxiliaryImage::Disparity, brenvia::imageio::AuxiliaryImage::PortraitMatte}) {
    brenvia::imageio::DecodeOptions options;
    options.auxiliary = which;
    auto map = brenvia::imageio::decodeData(data, size, options);
    if (!map) continue;
    const brenvia::CGImage& image = *map->image;
    brenvia::imageio::fuzzing::check(image.colorSpace() == nullptr);
    brenvia::imageio::fuzzing::check(image.format() == brenvia::CGPixelFormat::Gray8 ||
                                     image.format() == brenvia::CGPixelFormat::Gray16);
  }
  return 0;
}
