#include "platform/coreimage/ci_context.h"

#include "platform/coreimage/engine/renderer.h"

#include <limits>

namespace brenvia {
namespace {

ci::OutputFormat outputFormat(CIFormat f) {
  switch (f) {
    case CIFormat::RGBA8: return ci::OutputFormat::RGBA8;
    case CIFormat::ARGB8: return ci::OutputFormat::ARGB8;
    case CIFormat::BGRA8: return ci::OutputFormat::BGRA8;
    case CIFormat::RGBAh: return ci::OutputFormat::RGBAh;
    case CIFormat::RGBAf: return ci::OutputFormat::RGBAf;
  }
  return ci::OutputFormat::RGBA8;
}

// Renders only whole-pixel rectangles: a fractional origin moves the image instead.
bool pixelGrid(const CIImageRef& image, const CGRect& bounds, CIImageRef& moved, ci::PixelRect& rect) {
  if (!image || CGRectIsEmpty(bounds) || CGRectIsInfinite(bounds)) return false;
  CGRect r = CGRectStandardize(bounds);
  double fx = r.origin.x - std::floor(r.origin.x), fy = r.origin.y - std::floor(r.origin.y);
  moved = (fx != 0 || fy != 0) ? image->imageByApplyingTransform(CGAffineTransformMakeTranslation(-fx, -fy)) : image;
  int64_t w = std::llround(r.size.width), h = std::llround(r.size.height);
  if (w <= 0 || h <= 0) return false;
  rect = {int64_t(std::floor(r.origin.x)), int64_t(std::floor(r.origin.y)), w, h};
  return true;
}

}  // namespace

CIContext::CIContext(const CIContextOptions& options) : options_(options) {
  working_ = options.workingColorSpace ? *options.workingColorSpace
                                       : CGColorSpaceCreateWithName(kCGColorSpaceExtendedLinearSRGB);
  output_ = options.outputColorSpace ? *options.outputColorSpace : CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
}

std::shared_ptr<CIContext> CIContext::context() { return contextWithOptions({}); }

std::shared_ptr<CIContext> CIContext::contextWithOptions(const CIContextOptions& options) {
  return std::shared_ptr<CIContext>(new CIContext(options));
}

ci::RenderEnv CIContext::env() const { return {working_, options_.tetrahedralColorCubes}; }

CGSize CIContext::inputImageMaximumSize() const {
  if (options_.useSoftwareRenderer) {
    double m = std::numeric_limits<double>::max();
    return {m, m};
  }
  return {16384, 16384};
}

bool CIContext::render(const CIImageRef& image, void* bitmap, size_t rowBytes, const CGRect& bounds, CIFormat format,
                       const CGColorSpaceRef& colorSpace) const {
  CIImageRef moved;
  ci::PixelRect rect;
  if (!bitmap || !pixelGrid(image, bounds, moved, rect)) return false;
  ci::RenderTarget target{static_cast<uint8_t*>(bitmap), rowBytes, outputFormat(format), colorSpace};
  return ci::render(moved, rect, target, env(), {options_.threads, options_.tileSize});
}

CGImageRef CIContext::createCGImage(const CIImageRef& image, const CGRect& fromRect) const {
  return createCGImage(image, fromRect, CIFormat::RGBA8, output_);
}

CGImageRef CIContext::createCGImage(const CIImageRef& image, const CGRect& fromRect, CIFormat format,
                                    const CGColorSpaceRef& colorSpace) const {
  CIImageRef moved;
  ci::PixelRect rect;
  if (!pixelGrid(image, fromRect, moved, rect)) return nullptr;
  CGPixelFormat layout = format == CIFormat::RGBAf   ? CGPixelFormat::RGBAFloatPremultiplied
                         : format == CIFormat::BGRA8 ? CGPixelFormat::BGRA8Premultiplied
                                                     : CGPixelFormat::RGBA8Premultiplied;
  if (format == CIFormat::ARGB8 || format == CIFormat::RGBAh) return nullptr;
  auto bitmap = CGImage::allocate(size_t(rect.w), size_t(rect.h), layout, colorSpace);
  if (!bitmap) return nullptr;
  ci::RenderTarget target{bitmap->mutableData(), bitmap->bytesPerRow(), outputFormat(format), colorSpace};
  if (!ci::render(moved, rect, target, env(), {options_.threads, options_.tileSize})) return nullptr;
  return bitmap;
}

bool CIContext::renderBands(const CIImageRef& image, const CGRect& bounds, const CGColorSpaceRef& colorSpace,
                            size_t bandRows, const std::function<bool(size_t k, const CGImage& band)>& consume) const {
  CIImageRef moved;
  ci::PixelRect rect;
  if (!pixelGrid(image, bounds, moved, rect) || bandRows == 0) return false;
  auto handOver = [&](size_t k, const uint8_t* data, size_t rowBytes, size_t rows) {
    std::shared_ptr<const uint8_t[]> unowned(data, [](const uint8_t*) {});
    auto band = CGImage::create(size_t(rect.w), rows, rowBytes, CGPixelFormat::RGBA8Premultiplied, colorSpace, unowned);
    return band && consume(k, *band);
  };
  return ci::renderBands(moved, rect, ci::OutputFormat::RGBA8, colorSpace, env(),
                         {options_.threads, options_.tileSize}, int64_t(bandRows), handOver);
}

}  // namespace brenvia
