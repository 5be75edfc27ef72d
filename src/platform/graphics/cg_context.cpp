#include "platform/graphics/cairo_support.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>

namespace brenvia {
namespace {

using graphics::SurfacePtr;

// Where the channels of an 8-bit four-byte layout sit; null for other layouts.
std::optional<CGPixelLayout> layoutFor(CGBitmapInfo info) {
  if (info & ~(kCGBitmapAlphaInfoMask | kCGBitmapByteOrderMask)) return std::nullopt;
  const CGBitmapInfo alpha = info & kCGBitmapAlphaInfoMask, order = info & kCGBitmapByteOrderMask;
  if (order != 0 && order != kCGBitmapByteOrder32Little && order != kCGBitmapByteOrder32Big) return std::nullopt;
  const bool first = alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaNoneSkipFirst;
  const bool last = alpha == kCGImageAlphaPremultipliedLast || alpha == kCGImageAlphaNoneSkipLast;
  if (!first && !last) return std::nullopt;
  // Offsets in a big-endian word; a little-endian word reverses them.
  CGPixelLayout layout = first ? CGPixelLayout{0, 1, 2, 3, true} : CGPixelLayout{3, 0, 1, 2, true};
  layout.hasAlpha = alpha == kCGImageAlphaPremultipliedFirst || alpha == kCGImageAlphaPremultipliedLast;
  if (order == kCGBitmapByteOrder32Little) {
    layout = {3 - layout.a, 3 - layout.r, 3 - layout.g, 3 - layout.b, layout.hasAlpha};
  }
  return layout;
}

// Cairo's ARGB32 is a host-endian 32-bit word with alpha in the high byte.
bool isCairoLayout(const CGPixelLayout& l) {
  if constexpr (std::endian::native == std::endian::little) return l.hasAlpha && l.a == 3 && l.r == 2 && l.b == 0;
  return l.hasAlpha && l.a == 0 && l.r == 1 && l.b == 3;
}

std::optional<cairo_operator_t> cairoOperator(CGBlendMode mode) {
  static constexpr cairo_operator_t kOperators[] = {
      CAIRO_OPERATOR_OVER,        CAIRO_OPERATOR_MULTIPLY,       CAIRO_OPERATOR_SCREEN,
      CAIRO_OPERATOR_OVERLAY,     CAIRO_OPERATOR_DARKEN,         CAIRO_OPERATOR_LIGHTEN,
      CAIRO_OPERATOR_COLOR_DODGE, CAIRO_OPERATOR_COLOR_BURN,     CAIRO_OPERATOR_SOFT_LIGHT,
      CAIRO_OPERATOR_HARD_LIGHT,  CAIRO_OPERATOR_DIFFERENCE,     CAIRO_OPERATOR_EXCLUSION,
      CAIRO_OPERATOR_HSL_HUE,     CAIRO_OPERATOR_HSL_SATURATION, CAIRO_OPERATOR_HSL_COLOR,
      CAIRO_OPERATOR_HSL_LUMINOSITY, CAIRO_OPERATOR_CLEAR,       CAIRO_OPERATOR_SOURCE,
      CAIRO_OPERATOR_IN,          CAIRO_OPERATOR_OUT,            CAIRO_OPERATOR_ATOP,
      CAIRO_OPERATOR_DEST_OVER,   CAIRO_OPERATOR_DEST_IN,        CAIRO_OPERATOR_DEST_OUT,
      CAIRO_OPERATOR_DEST_ATOP,   CAIRO_OPERATOR_XOR,
  };
  if (mode == kCGBlendModePlusLighter) return CAIRO_OPERATOR_ADD;
  if (mode < 0 || mode >= int(std::size(kOperators))) return std::nullopt;
  return kOperators[mode];
}

cairo_filter_t filterFor(CGInterpolationQuality quality) {
  switch (quality) {
    case kCGInterpolationNone: return CAIRO_FILTER_NEAREST;
    case kCGInterpolationLow: return CAIRO_FILTER_BILINEAR;
    case kCGInterpolationHigh: return CAIRO_FILTER_BEST;
    default: return CAIRO_FILTER_GOOD;
  }
}

// Cairo stops drawing for good once it is handed a non-finite number, so such geometry is ignored.
bool isFinite(const CGRect& r) {
  return std::isfinite(r.origin.x) && std::isfinite(r.origin.y) && std::isfinite(r.size.width) &&
         std::isfinite(r.size.height);
}

// Makes the picture's own pixel grid the user space of `cr` for a picture stretched upright into
// `rect` of a y-up space; false when the rectangle cannot hold it.
bool enterImageSpace(cairo_t* cr, const CGRect& rect, double width, double height) {
  if (CGRectIsEmpty(rect) || !isFinite(rect)) return false;
  cairo_translate(cr, rect.origin.x, rect.origin.y + rect.size.height);
  cairo_scale(cr, rect.size.width / width, -rect.size.height / height);
  return true;
}

void fillWithSurface(cairo_t* cr, cairo_surface_t* surface, cairo_filter_t filter, double width, double height) {
  cairo_set_source_surface(cr, surface, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), filter);
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_rectangle(cr, 0, 0, width, height);
  cairo_fill(cr);
}

}  // namespace

CGContext::CGContext(SurfacePtr surface, void* callerData, size_t bytesPerRow, CGPixelLayout layout,
                     CGBitmapInfo info, CGColorSpaceRef space, std::vector<uint8_t> ownBytes)
    : surface_(std::move(surface)),
      cr_(cairo_create(surface_.get())),
      callerData_(callerData),
      callerBytesPerRow_(bytesPerRow),
      layout_(layout),
      info_(info),
      space_(std::move(space)),
      ownBytes_(std::move(ownBytes)) {
  // Bitmap contexts are y-up.
  cairo_translate(cr_, 0, double(height()));
  cairo_scale(cr_, 1, -1);
}

CGContext::~CGContext() { cairo_destroy(cr_); }

size_t CGContext::width() const { return size_t(cairo_image_surface_get_width(surface_.get())); }
size_t CGContext::height() const { return size_t(cairo_image_surface_get_height(surface_.get())); }
size_t CGContext::bytesPerRow() const {
  return callerData_ ? callerBytesPerRow_ : size_t(cairo_image_surface_get_stride(surface_.get()));
}
void* CGContext::data() const {
  if (callerData_) return callerData_;
  cairo_surface_flush(surface_.get());
  return cairo_image_surface_get_data(surface_.get());
}

void CGContext::save() {
  cairo_save(cr_);
  stack_.push_back(state_);
}

void CGContext::restore() {
  if (stack_.empty()) return;
  cairo_restore(cr_);
  state_ = std::move(stack_.back());
  stack_.pop_back();
}

void CGContext::loadFromCaller() {
  if (!convertsForCaller()) return;
  cairo_surface_flush(surface_.get());
  uint8_t* pixels = cairo_image_surface_get_data(surface_.get());
  const size_t stride = size_t(cairo_image_surface_get_stride(surface_.get()));
  for (size_t y = 0; y < height(); ++y) {
    const uint8_t* in = static_cast<const uint8_t*>(callerData_) + y * callerBytesPerRow_;
    auto* out = reinterpret_cast<uint32_t*>(pixels + y * stride);
    for (size_t x = 0; x < width(); ++x, in += 4) {
      uint32_t alpha = layout_.hasAlpha ? in[layout_.a] : 255;
      out[x] = alpha << 24 | uint32_t(in[layout_.r]) << 16 | uint32_t(in[layout_.g]) << 8 | in[layout_.b];
    }
  }
  cairo_surface_mark_dirty(surface_.get());
}

void CGContext::storeToCaller() {
  if (!convertsForCaller()) return;
  cairo_surface_flush(surface_.get());
  const uint8_t* pixels = cairo_image_surface_get_data(surface_.get());
  const size_t stride = size_t(cairo_image_surface_get_stride(surface_.get()));
  for (size_t y = 0; y < height(); ++y) {
    const auto* in = reinterpret_cast<const uint32_t*>(pixels + y * stride);
    uint8_t* out = static_cast<uint8_t*>(callerData_) + y * callerBytesPerRow_;
    for (size_t x = 0; x < width(); ++x, out += 4) {
      out[layout_.a] = layout_.hasAlpha ? uint8_t(in[x] >> 24) : 255;
      out[layout_.r] = uint8_t(in[x] >> 16);
      out[layout_.g] = uint8_t(in[x] >> 8);
      out[layout_.b] = uint8_t(in[x]);
    }
  }
}

void CGContext::draw(const std::function<void(cairo_t*)>& shape) {
  loadFromCaller();
  std::optional<cairo_operator_t> op = cairoOperator(state_.blendMode);
  const bool cairoDraws = op && state_.blendMode != kCGBlendModeClear && !graphics::isHandBlended(state_.blendMode);
  if (state_.alpha >= 1.0 && !state_.clipMask && cairoDraws) {
    cairo_save(cr_);
    cairo_set_operator(cr_, *op);
    shape(cr_);
    cairo_restore(cr_);
  } else if (SurfacePtr layer = drawLayer(shape)) {
    compositeLayer(layer.get());
  }
  storeToCaller();
}

// The shape alone on a transparent surface of the context's size, faded by the alpha and cut by
// the clip mask.
SurfacePtr CGContext::drawLayer(const std::function<void(cairo_t*)>& shape) {
  SurfacePtr layer =
      graphics::adoptSurface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, int(width()), int(height())));
  if (!layer) return nullptr;
  cairo_t* cr = cairo_create(layer.get());
  cairo_matrix_t matrix;
  cairo_get_matrix(cr_, &matrix);
  cairo_set_matrix(cr, &matrix);
  cairo_set_antialias(cr, cairo_get_antialias(cr_));
  shape(cr);
  cairo_identity_matrix(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_DEST_IN);
  cairo_set_source_rgba(cr, 0, 0, 0, 1);
  if (state_.alpha < 1.0) cairo_paint_with_alpha(cr, std::max(0.0, state_.alpha));
  if (state_.clipMask) cairo_mask_surface(cr, state_.clipMask.get(), 0, 0);
  cairo_destroy(cr);
  cairo_surface_flush(layer.get());
  return layer;
}

void CGContext::compositeLayer(cairo_surface_t* layer) {
  if (graphics::isHandBlended(state_.blendMode)) return graphics::blendByHand(state_.blendMode, layer, surface_.get());
  cairo_save(cr_);
  cairo_identity_matrix(cr_);
  if (state_.blendMode == kCGBlendModeClear) {
    cairo_set_operator(cr_, CAIRO_OPERATOR_CLEAR);
    cairo_mask_surface(cr_, layer, 0, 0);
  } else {
    cairo_set_source_surface(cr_, layer, 0, 0);
    cairo_set_operator(cr_, cairoOperator(state_.blendMode).value_or(CAIRO_OPERATOR_OVER));
    cairo_paint(cr_);
  }
  cairo_restore(cr_);
}

CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, const CGColorSpaceRef& space, CGBitmapInfo bitmapInfo) {
  std::optional<CGPixelLayout> layout = layoutFor(bitmapInfo);
  if (!layout || bitsPerComponent != 8 || !space || space->model() != CGColorSpaceModel::RGB) return nullptr;
  // Cairo's limit on each side, and the largest bitmap we allocate.
  if (width == 0 || height == 0 || width > 32767 || height > 32767 || width * height > CGImage::kMaxPixels) {
    return nullptr;
  }
  if (data && bytesPerRow < width * 4) return nullptr;
  // Without caller memory in Cairo's own layout, the context keeps the pixels in the asked layout
  // in memory of its own.
  std::vector<uint8_t> ownBytes;
  if (!data && !isCairoLayout(*layout)) {
    bytesPerRow = width * 4;
    ownBytes.assign(bytesPerRow * height, 0);
    data = ownBytes.data();
  }
  SurfacePtr surface;
  if (data && isCairoLayout(*layout) && bytesPerRow % 4 == 0) {
    surface = graphics::adoptSurface(cairo_image_surface_create_for_data(
        static_cast<uint8_t*>(data), CAIRO_FORMAT_ARGB32, int(width), int(height), int(bytesPerRow)));
  } else {
    surface = graphics::adoptSurface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, int(width), int(height)));
  }
  if (!surface) return nullptr;
  auto context = std::make_shared<CGContext>(std::move(surface), data, bytesPerRow, *layout, bitmapInfo, space,
                                              std::move(ownBytes));
  if (cairo_status(context->cairo()) != CAIRO_STATUS_SUCCESS) return nullptr;
  context->loadFromCaller();
  return context;
}

void* CGBitmapContextGetData(const CGContextRef& c) { return c ? c->data() : nullptr; }
size_t CGBitmapContextGetWidth(const CGContextRef& c) { return c ? c->width() : 0; }
size_t CGBitmapContextGetHeight(const CGContextRef& c) { return c ? c->height() : 0; }
size_t CGBitmapContextGetBytesPerRow(const CGContextRef& c) { return c ? c->bytesPerRow() : 0; }
size_t CGBitmapContextGetBitsPerPixel(const CGContextRef& c) { return c ? 32 : 0; }
CGBitmapInfo CGBitmapContextGetBitmapInfo(const CGContextRef& c) { return c ? c->bitmapInfo() : 0; }
CGColorSpaceRef CGBitmapContextGetColorSpace(const CGContextRef& c) { return c ? c->colorSpace() : nullptr; }

CGImageRef CGBitmapContextCreateImage(const CGContextRef& c) {
  if (!c) return nullptr;
  c->loadFromCaller();
  auto image = CGImage::allocate(c->width(), c->height(), CGPixelFormat::BGRA8Premultiplied, c->colorSpace());
  if (!image) return nullptr;
  cairo_surface_flush(c->surface());
  const uint8_t* pixels = cairo_image_surface_get_data(c->surface());
  const size_t stride = size_t(cairo_image_surface_get_stride(c->surface()));
  for (size_t y = 0; y < c->height(); ++y) std::memcpy(image->mutableRow(y), pixels + y * stride, c->width() * 4);
  return image;
}

void CGContextSaveGState(const CGContextRef& c) {
  if (c) c->save();
}
void CGContextRestoreGState(const CGContextRef& c) {
  if (c) c->restore();
}
void CGContextSetAlpha(const CGContextRef& c, double alpha) {
  if (c) c->state().alpha = std::clamp(alpha, 0.0, 1.0);
}
void CGContextSetBlendMode(const CGContextRef& c, CGBlendMode mode) {
  if (c) c->state().blendMode = mode;
}
void CGContextSetInterpolationQuality(const CGContextRef& c, CGInterpolationQuality quality) {
  if (c) c->state().filter = filterFor(quality);
}
void CGContextSetAllowsAntialiasing(const CGContextRef& c, bool allows) {
  if (c) cairo_set_antialias(c->cairo(), allows ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
}
void CGContextSetRGBFillColor(const CGContextRef& c, double red, double green, double blue, double alpha) {
  if (!c) return;
  double* fill = c->state().fill;
  fill[0] = red, fill[1] = green, fill[2] = blue, fill[3] = alpha;
}
void CGContextSetFillColorWithColor(const CGContextRef& c, const CGColorRef& color) {
  if (!color) return;
  const std::vector<double>& v = color->components();
  if (v.size() == 4) CGContextSetRGBFillColor(c, v[0], v[1], v[2], v[3]);
  if (v.size() == 2) CGContextSetRGBFillColor(c, v[0], v[0], v[0], v[1]);
}

void CGContextClipToMask(const CGContextRef& c, const CGRect& rect, const CGImageRef& mask) {
  if (!c || !mask) return;
  SurfacePtr coverage = graphics::coverageFromImage(*mask);
  SurfacePtr clip =
      graphics::adoptSurface(cairo_image_surface_create(CAIRO_FORMAT_A8, int(c->width()), int(c->height())));
  if (!coverage || !clip) return;
  cairo_t* cr = cairo_create(clip.get());
  cairo_matrix_t matrix;
  cairo_get_matrix(c->cairo(), &matrix);
  cairo_set_matrix(cr, &matrix);
  if (enterImageSpace(cr, rect, double(mask->width()), double(mask->height()))) {
    fillWithSurface(cr, coverage.get(), c->state().filter, double(mask->width()), double(mask->height()));
  }
  if (const SurfacePtr& previous = c->state().clipMask) {
    cairo_identity_matrix(cr);
    cairo_set_source_surface(cr, previous.get(), 0, 0);
    cairo_set_operator(cr, CAIRO_OPERATOR_DEST_IN);
    cairo_paint(cr);
  }
  cairo_destroy(cr);
  cairo_surface_flush(clip.get());
  c->state().clipMask = std::move(clip);
}

// Transforms that are singular or not finite are ignored (see isFinite).
void CGContextTranslateCTM(const CGContextRef& c, double tx, double ty) {
  if (c && std::isfinite(tx) && std::isfinite(ty)) cairo_translate(c->cairo(), tx, ty);
}
void CGContextScaleCTM(const CGContextRef& c, double sx, double sy) {
  if (c && std::isnormal(sx) && std::isnormal(sy)) cairo_scale(c->cairo(), sx, sy);
}
void CGContextRotateCTM(const CGContextRef& c, double angle) {
  if (c && std::isfinite(angle)) cairo_rotate(c->cairo(), angle);
}
void CGContextConcatCTM(const CGContextRef& c, const CGAffineTransform& t) {
  if (!c || !std::isnormal(t.a * t.d - t.b * t.c) || !std::isfinite(t.tx) || !std::isfinite(t.ty)) return;
  cairo_matrix_t matrix;
  cairo_matrix_init(&matrix, t.a, t.b, t.c, t.d, t.tx, t.ty);
  cairo_transform(c->cairo(), &matrix);
}

CGAffineTransform CGContextGetCTM(const CGContextRef& c) {
  if (!c) return CGAffineTransformIdentity;
  // The context's own y-flip is not part of the transform the caller sees.
  cairo_matrix_t matrix, flip, ctm;
  cairo_get_matrix(c->cairo(), &matrix);
  cairo_matrix_init(&flip, 1, 0, 0, -1, 0, double(c->height()));
  cairo_matrix_multiply(&ctm, &matrix, &flip);
  return {ctm.xx, ctm.yx, ctm.xy, ctm.yy, ctm.x0, ctm.y0};
}

CGRect CGContextGetClipBoundingBox(const CGContextRef& c) {
  if (!c) return CGRectNull;
  const CGRect device = CGRectMake(0, 0, double(c->width()), double(c->height()));
  return CGRectApplyAffineTransform(device, CGAffineTransformInvert(CGContextGetCTM(c)));
}

void CGContextFillRect(const CGContextRef& c, const CGRect& rect) {
  if (!c || !isFinite(rect)) return;
  const double* fill = c->state().fill;
  c->draw([&](cairo_t* cr) {
    cairo_set_source_rgba(cr, fill[0], fill[1], fill[2], fill[3]);
    cairo_rectangle(cr, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    cairo_fill(cr);
  });
}

void CGContextClearRect(const CGContextRef& c, const CGRect& rect) {
  if (!c || !isFinite(rect)) return;
  c->loadFromCaller();
  cairo_t* cr = c->cairo();
  cairo_save(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_rectangle(cr, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
  cairo_fill(cr);
  cairo_restore(cr);
  c->storeToCaller();
}

void CGContextDrawImage(const CGContextRef& c, const CGRect& rect, const CGImageRef& image) {
  if (!c || !image) return;
  SurfacePtr surface = graphics::surfaceFromImage(*image, c->colorSpace());
  if (!surface) return;
  const double width = double(image->width()), height = double(image->height());
  const cairo_filter_t filter = c->state().filter;
  c->draw([&](cairo_t* cr) {
    if (enterImageSpace(cr, rect, width, height)) fillWithSurface(cr, surface.get(), filter, width, height);
  });
}

}  // namespace brenvia
