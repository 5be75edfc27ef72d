// PlusDarker, the one drawing blend mode Cairo lacks, as our own pixel loop.

#include "platform/graphics/cairo_support.h"

#include <algorithm>

namespace brenvia::graphics {

bool isHandBlended(CGBlendMode mode) { return mode == kCGBlendModePlusDarker; }

// a = as + ab − as·ab, rgb = max(0, a − ((as − cs) + (ab − cb))) on premultiplied bytes.
void blendByHand(CGBlendMode, cairo_surface_t* source, cairo_surface_t* target) {
  cairo_surface_flush(target);
  const int width = cairo_image_surface_get_width(target), height = cairo_image_surface_get_height(target);
  const int sourceStride = cairo_image_surface_get_stride(source);
  const int targetStride = cairo_image_surface_get_stride(target);
  for (int y = 0; y < height; ++y) {
    const auto* s = reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(source) + y * sourceStride);
    auto* d = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(target) + y * targetStride);
    for (int x = 0; x < width; ++x) {
      const int as = int(s[x] >> 24), ab = int(d[x] >> 24);
      if (as == 0) continue;
      const int a = as + ab - (as * ab + 127) / 255;
      uint32_t pixel = uint32_t(a) << 24;
      for (int shift = 0; shift < 24; shift += 8) {
        const int cs = int(s[x] >> shift & 0xFF), cb = int(d[x] >> shift & 0xFF);
        pixel |= uint32_t(std::max(0, a - ((as - cs) + (ab - cb)))) << shift;
      }
      d[x] = pixel;
    }
  }
  cairo_surface_mark_dirty(target);
}

}  // namespace brenvia::graphics
