#pragma once

// Pieces of the Cairo-backed drawing shared by the context and the gradients. Only the graphics
// layer includes this header.

#include "platform/graphics/cg_context.h"

#include <cairo.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <vector>

namespace brenvia {
namespace graphics {

using SurfacePtr = std::shared_ptr<cairo_surface_t>;

// Takes over one reference; null when Cairo reports an error surface.
SurfacePtr adoptSurface(cairo_surface_t* surface);
// The image as a Cairo ARGB32 surface (premultiplied), its colours converted into `space` when
// both are RGB spaces that differ; null when memory is short.
SurfacePtr surfaceFromImage(const CGImage& image, const CGColorSpaceRef& space);
// The coverage of a mask image as an A8 surface: its alpha, or the grey level of an opaque image.
SurfacePtr coverageFromImage(const CGImage& image);

// Blend modes Cairo lacks, drawn by our own pixel loops: `source` (a layer of the target's size)
// goes onto `target` through the mode.
bool isHandBlended(CGBlendMode mode);
void blendByHand(CGBlendMode mode, cairo_surface_t* source, cairo_surface_t* target);

}  // namespace graphics

struct CGGraphicsState {
  double alpha = 1.0;
  CGBlendMode blendMode = kCGBlendModeNormal;
  graphics::SurfacePtr clipMask;  // A8 in device pixels; null: no clip
  CGRect clipBounds = CGRectInfinite;  // the mask rectangles' bounds in y-up device pixels
  double fill[4] = {0, 0, 0, 1};  // straight RGBA
  double stroke[4] = {0, 0, 0, 1};
  cairo_filter_t filter = CAIRO_FILTER_GOOD;
  double lineWidth = 1.0, miterLimit = 10.0, dashPhase = 0.0;
  cairo_line_join_t lineJoin = CAIRO_LINE_JOIN_MITER;
  cairo_line_cap_t lineCap = CAIRO_LINE_CAP_BUTT;
  std::vector<double> dashes;
};

// The current path in device pixels, kept apart from Cairo's own so that it survives other
// drawing and can be replayed onto a layer.
class CGContextPath {
 public:
  bool empty() const { return data_.empty(); }
  const std::optional<CGPoint>& currentPoint() const { return current_; }
  void moveTo(CGPoint p);
  void lineTo(CGPoint p);
  void curveTo(CGPoint c1, CGPoint c2, CGPoint p);
  void close();
  void clear();
  // Appends the path to `cr`'s own, whatever its transform.
  void appendTo(cairo_t* cr) const;

 private:
  void add(cairo_path_data_type_t type, std::initializer_list<CGPoint> points);
  std::vector<cairo_path_data_t> data_;
  std::optional<CGPoint> current_, subpathStart_;
};

// How a context's pixels are stored in the caller's memory: bytes, one grey byte, or half or
// single floats with premultiplied alpha.
enum class CGPixelEncoding { Bytes, Gray8, Half, Float };

// Component indices of the four channels within a pixel of a bitmap-info layout.
struct CGPixelLayout {
  int a, r, g, b;
  bool hasAlpha;
  CGPixelEncoding encoding = CGPixelEncoding::Bytes;
  size_t bytesPerPixel() const {
    switch (encoding) {
      case CGPixelEncoding::Gray8: return 1;
      case CGPixelEncoding::Half: return 8;
      case CGPixelEncoding::Float: return 16;
      default: return 4;
    }
  }
};

class CGContext {
 public:
  CGContext(graphics::SurfacePtr surface, void* callerData, size_t bytesPerRow, CGPixelLayout layout,
            CGBitmapInfo info, CGColorSpaceRef space, std::vector<uint8_t> ownBytes);
  ~CGContext();
  CGContext(const CGContext&) = delete;
  CGContext& operator=(const CGContext&) = delete;

  cairo_t* cairo() const { return cr_; }
  cairo_surface_t* surface() const { return surface_.get(); }
  CGGraphicsState& state() { return state_; }
  CGContextPath& path() { return path_; }
  void save();
  void restore();
  // Runs `shape`, which sets a source and fills a path, through the state's alpha, clip mask and
  // blend mode, then brings the caller's memory up to date.
  void draw(const std::function<void(cairo_t*)>& shape);
  // Copies the caller's memory into the surface, or the surface into the caller's memory, where
  // the two differ in layout.
  void loadFromCaller();
  void storeToCaller();

  void* data() const;
  size_t width() const, height() const, bytesPerRow() const;
  CGBitmapInfo bitmapInfo() const { return info_; }
  const CGPixelLayout& layout() const { return layout_; }
  const CGColorSpaceRef& colorSpace() const { return space_; }

 private:
  graphics::SurfacePtr drawLayer(const std::function<void(cairo_t*)>& shape);
  void compositeLayer(cairo_surface_t* layer);
  bool convertsForCaller() const { return callerData_ && cairo_image_surface_get_data(surface_.get()) != callerData_; }

  graphics::SurfacePtr surface_;
  cairo_t* cr_;
  void* callerData_;
  size_t callerBytesPerRow_;
  CGPixelLayout layout_;
  CGBitmapInfo info_;
  CGColorSpaceRef space_;
  CGGraphicsState state_;
  std::vector<CGGraphicsState> stack_;
  CGContextPath path_;
  std::vector<uint8_t> ownBytes_;
};

}  // namespace brenvia
