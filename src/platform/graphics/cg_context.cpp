#include "platform/graphics/cairo_support.h"
#include "platform/graphics/half_float.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>

namespace brenvia {
namespace {

using graphics::SurfacePtr;

// Where the channels of an 8-bit four-byte layout sit; null for other layouts.
std::optional<CGPixelLayout> byteLayoutFor(CGBitmapInfo info) {
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

// Half (16-bit) or single (32-bit) floats in host order, R, G, B and then premultiplied alpha
// or an ignored fourth component.
std::optional<CGPixelLayout> floatLayoutFor(CGBitmapInfo info, size_t bitsPerComponent) {
  const CGBitmapInfo alpha = info & kCGBitmapAlphaInfoMask, order = info & kCGBitmapByteOrderMask;
  if (info & ~(kCGBitmapAlphaInfoMask | kCGBitmapByteOrderMask | kCGBitmapFloatComponents)) return std::nullopt;
  if (alpha != kCGImageAlphaPremultipliedLast && alpha != kCGImageAlphaNoneSkipLast) return std::nullopt;
  const CGBitmapInfo hostOrder = bitsPerComponent == 16 ? kCGBitmapByteOrder16Little : kCGBitmapByteOrder32Little;
  if (order != 0 && (std::endian::native != std::endian::little || order != hostOrder)) return std::nullopt;
  if (bitsPerComponent != 16 && bitsPerComponent != 32) return std::nullopt;
  const auto encoding = bitsPerComponent == 16 ? CGPixelEncoding::Half : CGPixelEncoding::Float;
  return CGPixelLayout{3, 0, 1, 2, alpha == kCGImageAlphaPremultipliedLast, encoding};
}

// The layouts a context can keep in the caller's memory: four bytes or four floats of an RGB
// space, or one byte of a grey space without alpha.
std::optional<CGPixelLayout> layoutFor(CGBitmapInfo info, size_t bitsPerComponent, CGColorSpaceModel model) {
  if (model == CGColorSpaceModel::Monochrome) {
    if (info != kCGImageAlphaNone || bitsPerComponent != 8) return std::nullopt;
    return CGPixelLayout{0, 0, 0, 0, false, CGPixelEncoding::Gray8};
  }
  if (info & kCGBitmapFloatComponents) return floatLayoutFor(info, bitsPerComponent);
  if (bitsPerComponent != 8) return std::nullopt;
  return byteLayoutFor(info);
}

// Half floats are stored as their bit patterns.
struct Half {
  uint16_t bits;
  Half() = default;
  explicit Half(float v) : bits(halfFromFloat(v)) {}
  explicit operator float() const { return floatFromHalf(bits); }
};

uint8_t unitToByte(float v) { return uint8_t(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); }

template <class Component>
Component componentAt(const uint8_t* pixel, int index) {
  Component value;
  std::memcpy(&value, pixel + index * sizeof(Component), sizeof(Component));
  return value;
}

template <class Component>
void putComponent(uint8_t* pixel, int index, uint32_t byte) {
  const Component value = Component(float(byte & 0xFF) / 255.0f);
  std::memcpy(pixel + index * sizeof(Component), &value, sizeof(Component));
}

uint32_t cairoWord(uint32_t a, uint32_t r, uint32_t g, uint32_t b) { return a << 24 | r << 16 | g << 8 | b; }

// One pixel of the caller's memory as a premultiplied Cairo word, and back. Floats are clamped
// to 0-1 and colour to alpha, as the 8-bit surface needs.
uint32_t bytesToCairo(const uint8_t* in, const CGPixelLayout& l) {
  return cairoWord(l.hasAlpha ? in[l.a] : 255, in[l.r], in[l.g], in[l.b]);
}

void cairoToBytes(uint32_t word, uint8_t* out, const CGPixelLayout& l) {
  out[l.a] = l.hasAlpha ? uint8_t(word >> 24) : 255;
  out[l.r] = uint8_t(word >> 16);
  out[l.g] = uint8_t(word >> 8);
  out[l.b] = uint8_t(word);
}

uint32_t greyToCairo(const uint8_t* in, const CGPixelLayout&) { return cairoWord(255, in[0], in[0], in[0]); }

// The luma of the colour composited over black (a grey context has no alpha).
void cairoToGrey(uint32_t word, uint8_t* out, const CGPixelLayout&) {
  const double luma = 0.2126 * ((word >> 16) & 0xFF) + 0.7152 * ((word >> 8) & 0xFF) + 0.0722 * (word & 0xFF);
  out[0] = uint8_t(std::lround(luma));
}

template <class Component>
uint32_t floatsToCairo(const uint8_t* in, const CGPixelLayout& l) {
  const uint8_t a = l.hasAlpha ? unitToByte(float(componentAt<Component>(in, l.a))) : 255;
  auto channel = [&](int i) { return std::min(unitToByte(float(componentAt<Component>(in, i))), a); };
  return cairoWord(a, channel(l.r), channel(l.g), channel(l.b));
}

template <class Component>
void cairoToFloats(uint32_t word, uint8_t* out, const CGPixelLayout& l) {
  putComponent<Component>(out, l.a, l.hasAlpha ? word >> 24 : 255);
  putComponent<Component>(out, l.r, word >> 16);
  putComponent<Component>(out, l.g, word >> 8);
  putComponent<Component>(out, l.b, word);
}

// Converts every pixel of the caller's rows into the surface, or back; the converter is a template
// argument so that it is inlined into the loop.
template <uint32_t (*ToCairo)(const uint8_t*, const CGPixelLayout&)>
void loadPixels(cairo_surface_t* surface, const uint8_t* caller, size_t callerBytesPerRow, const CGPixelLayout& l) {
  uint8_t* pixels = cairo_image_surface_get_data(surface);
  const size_t stride = size_t(cairo_image_surface_get_stride(surface));
  const size_t width = size_t(cairo_image_surface_get_width(surface)), pixelBytes = l.bytesPerPixel();
  for (size_t y = 0; y < size_t(cairo_image_surface_get_height(surface)); ++y) {
    const uint8_t* in = caller + y * callerBytesPerRow;
    auto* out = reinterpret_cast<uint32_t*>(pixels + y * stride);
    for (size_t x = 0; x < width; ++x, in += pixelBytes) out[x] = ToCairo(in, l);
  }
}

template <void (*FromCairo)(uint32_t, uint8_t*, const CGPixelLayout&)>
void storePixels(cairo_surface_t* surface, uint8_t* caller, size_t callerBytesPerRow, const CGPixelLayout& l) {
  const uint8_t* pixels = cairo_image_surface_get_data(surface);
  const size_t stride = size_t(cairo_image_surface_get_stride(surface));
  const size_t width = size_t(cairo_image_surface_get_width(surface)), pixelBytes = l.bytesPerPixel();
  for (size_t y = 0; y < size_t(cairo_image_surface_get_height(surface)); ++y) {
    const auto* in = reinterpret_cast<const uint32_t*>(pixels + y * stride);
    uint8_t* out = caller + y * callerBytesPerRow;
    for (size_t x = 0; x < width; ++x, out += pixelBytes) FromCairo(in[x], out, l);
  }
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
  const auto* caller = static_cast<const uint8_t*>(callerData_);
  switch (layout_.encoding) {
    case CGPixelEncoding::Bytes: loadPixels<bytesToCairo>(surface_.get(), caller, callerBytesPerRow_, layout_); break;
    case CGPixelEncoding::Gray8: loadPixels<greyToCairo>(surface_.get(), caller, callerBytesPerRow_, layout_); break;
    case CGPixelEncoding::Half:
      loadPixels<floatsToCairo<Half>>(surface_.get(), caller, callerBytesPerRow_, layout_);
      break;
    case CGPixelEncoding::Float:
      loadPixels<floatsToCairo<float>>(surface_.get(), caller, callerBytesPerRow_, layout_);
      break;
  }
  cairo_surface_mark_dirty(surface_.get());
}

void CGContext::storeToCaller() {
  if (!convertsForCaller()) return;
  cairo_surface_flush(surface_.get());
  auto* caller = static_cast<uint8_t*>(callerData_);
  switch (layout_.encoding) {
    case CGPixelEncoding::Bytes: storePixels<cairoToBytes>(surface_.get(), caller, callerBytesPerRow_, layout_); break;
    case CGPixelEncoding::Gray8: storePixels<cairoToGrey>(surface_.get(), caller, callerBytesPerRow_, layout_); break;
    case CGPixelEncoding::Half:
      storePixels<cairoToFloats<Half>>(surface_.get(), caller, callerBytesPerRow_, layout_);
      break;
    case CGPixelEncoding::Float:
      storePixels<cairoToFloats<float>>(surface_.get(), caller, callerBytesPerRow_, layout_);
      break;
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
  if (!space) return nullptr;
  std::optional<CGPixelLayout> layout = layoutFor(bitmapInfo, bitsPerComponent, space->model());
  if (!layout) return nullptr;
  // Cairo's limit on each side, and the largest bitmap we allocate.
  if (width == 0 || height == 0 || width > 32767 || height > 32767 || width * height > CGImage::kMaxPixels) {
    return nullptr;
  }
  const size_t pixelBytes = layout->bytesPerPixel();
  if (data && bytesPerRow < width * pixelBytes) return nullptr;
  // Without caller memory in Cairo's own layout, the context keeps the pixels in the asked layout
  // in memory of its own.
  const bool cairoLayout = layout->encoding == CGPixelEncoding::Bytes && isCairoLayout(*layout);
  std::vector<uint8_t> ownBytes;
  if (!data && !cairoLayout) {
    bytesPerRow = width * pixelBytes;
    ownBytes.assign(bytesPerRow * height, 0);
    data = ownBytes.data();
  }
  SurfacePtr surface;
  if (data && cairoLayout && bytesPerRow % 4 == 0) {
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
size_t CGBitmapContextGetBitsPerPixel(const CGContextRef& c) { return c ? c->layout().bytesPerPixel() * 8 : 0; }
CGBitmapInfo CGBitmapContextGetBitmapInfo(const CGContextRef& c) { return c ? c->bitmapInfo() : 0; }
CGColorSpaceRef CGBitmapContextGetColorSpace(const CGContextRef& c) { return c ? c->colorSpace() : nullptr; }

CGImageRef CGBitmapContextCreateImage(const CGContextRef& c) {
  if (!c) return nullptr;
  c->loadFromCaller();
  if (c->layout().encoding == CGPixelEncoding::Gray8) {
    auto image = CGImage::allocate(c->width(), c->height(), CGPixelFormat::Gray8, c->colorSpace());
    if (!image) return nullptr;
    const auto* bytes = static_cast<const uint8_t*>(c->data());
    for (size_t y = 0; y < c->height(); ++y) std::memcpy(image->mutableRow(y), bytes + y * c->bytesPerRow(), c->width());
    return image;
  }
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
  const CGRect bounds = isFinite(rect) ? CGRectApplyAffineTransform(rect, CGContextGetCTM(c)) : CGRectNull;
  c->state().clipBounds = CGRectIntersection(c->state().clipBounds, bounds);
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
  const CGRect bitmap = CGRectMake(0, 0, double(c->width()), double(c->height()));
  const CGRect device = CGRectIntersection(bitmap, c->state().clipBounds);
  if (CGRectIsNull(device)) return CGRectNull;
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
