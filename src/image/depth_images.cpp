#include "image/depth_images.h"

#include "platform/coreimage/ci_context.h"
#include "platform/foundation/executor.h"
#include "platform/foundation/log.h"
#include "platform/graphics/cg_image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace brenvia {
namespace {

// Brightness differences (0 to 255) at which a guide sample's weight halves.
constexpr double kRangeSigma = 12.0;
// Maps are refined at up to this many times their own size; the engine scales the rest of the way
// when the map is used, which keeps a 12 MP picture's map cheap to prepare.
constexpr double kLargestRefinement = 2.0;

struct GreyPlane {
  size_t width = 0, height = 0;
  std::vector<float> values;  // top row first
};

bool finiteArea(const CGRect& e) {
  return std::isfinite(e.size.width) && std::isfinite(e.size.height) && e.size.width >= 1 && e.size.height >= 1;
}

// The red channel of the extent, as working-space values without colour management.
std::optional<GreyPlane> renderRed(const CIImageRef& image) {
  const CGRect e = CGRectIntegral(image->extent());
  if (!finiteArea(e)) return std::nullopt;
  GreyPlane plane{size_t(e.size.width), size_t(e.size.height), {}};
  std::vector<float> rgba(plane.width * plane.height * 4);
  CIContextOptions unmanaged;
  unmanaged.workingColorSpace = CGColorSpaceRef();
  unmanaged.outputColorSpace = CGColorSpaceRef();
  if (!CIContext::contextWithOptions(unmanaged)->render(image, rgba.data(), plane.width * 16, e, kCIFormatRGBAf,
                                                        CGColorSpaceRef())) {
    return std::nullopt;
  }
  plane.values.resize(plane.width * plane.height);
  for (size_t i = 0; i < plane.values.size(); ++i) plane.values[i] = rgba[i * 4];
  return plane;
}

// 8-bit brightness of the picture as shown, top row first.
std::optional<GreyPlane> renderBrightness(const CIImageRef& image) {
  const CGRect e = CGRectIntegral(image->extent());
  if (!finiteArea(e)) return std::nullopt;
  CGImageRef pixels = CIContext::context()->createCGImage(image, e);
  if (!pixels) return std::nullopt;
  GreyPlane plane{pixels->width(), pixels->height(), std::vector<float>(pixels->width() * pixels->height())};
  BVExecutorParallelFor(plane.height, 0, [&](size_t y) {
    const uint8_t* row = pixels->row(y);
    float* out = &plane.values[y * plane.width];
    for (size_t x = 0; x < plane.width; ++x) {
      const uint8_t* p = row + x * 4;
      out[x] = 0.2126f * p[0] + 0.7152f * p[1] + 0.0722f * p[2];
    }
  });
  return plane;
}

// The mean brightness of the guide over each cell of a width x height grid.
GreyPlane cellMeans(const GreyPlane& guide, size_t width, size_t height) {
  GreyPlane means{width, height, std::vector<float>(width * height)};
  BVExecutorParallelFor(height, 0, [&](size_t j) {
    const size_t y0 = j * guide.height / height, y1 = std::max(y0 + 1, (j + 1) * guide.height / height);
    for (size_t i = 0; i < width; ++i) {
      const size_t x0 = i * guide.width / width, x1 = std::max(x0 + 1, (i + 1) * guide.width / width);
      double sum = 0;
      for (size_t y = y0; y < y1; ++y)
        for (size_t x = x0; x < x1; ++x) sum += guide.values[y * guide.width + x];
      means.values[j * width + i] = float(sum / double((y1 - y0) * (x1 - x0)));
    }
  });
  return means;
}

CIImageRef greyImage16(const GreyPlane& plane, const CGRect& extent) {
  auto image = CGImage::allocate(plane.width, plane.height, CGPixelFormat::Gray16, CGColorSpaceRef());
  if (!image) return nullptr;
  BVExecutorParallelFor(plane.height, 0, [&](size_t y) {
    auto* row = reinterpret_cast<uint16_t*>(image->mutableRow(y));
    for (size_t x = 0; x < plane.width; ++x) {
      row[x] = uint16_t(std::lround(std::clamp(plane.values[y * plane.width + x], 0.0f, 1.0f) * 65535.0f));
    }
  });
  CIImageRef made = CIImage::imageWithCGImage(image);
  if (!made || (extent.origin.x == 0 && extent.origin.y == 0)) return made;
  return made->imageByApplyingTransform(CGAffineTransformMakeTranslation(extent.origin.x, extent.origin.y));
}

}  // namespace

CIImageRef BVNormalizedDisparityImage(const CIImageRef& disparity) {
  if (!disparity) return nullptr;
  std::optional<GreyPlane> plane = renderRed(disparity);
  if (!plane) {
    BVLog("[BVImage] Unable to render the disparity map, could not normalize");
    return nullptr;
  }
  float low = 1.0f, high = 0.0f;
  for (float v : plane->values) low = std::min(low, v), high = std::max(high, v);
  const float range = high - low;
  for (float& v : plane->values) v = range > 0 ? (v - low) / range : 0.0f;
  return greyImage16(*plane, CGRectIntegral(disparity->extent()));
}

CIImageRef BVEdgePreservingUpsampledImage(const CIImageRef& map, const CIImageRef& guide) {
  return guide ? BVEdgePreservingUpsampledImage(map, guide, guide->extent()) : nullptr;
}

CIImageRef BVEdgePreservingUpsampledImage(const CIImageRef& map, const CIImageRef& guide, const CGRect& extent) {
  if (!map || !guide) return nullptr;
  const CGRect target = CGRectIntegral(extent);
  const CGSize mapSize = map->extent().size;
  if (mapSize.width == target.size.width && mapSize.height == target.size.height) return map;
  const double refinement = std::min({1.0, kLargestRefinement * mapSize.width / target.size.width,
                                      kLargestRefinement * mapSize.height / target.size.height});
  const CGRect g = guide->extent();
  const double sx = target.size.width * refinement / g.size.width, sy = target.size.height * refinement / g.size.height;
  CIImageRef workingGuide =
      sx == 1 && sy == 1 ? guide : guide->imageByApplyingTransform(CGAffineTransformMakeScale(sx, sy));
  std::optional<GreyPlane> small = renderRed(map), full = renderBrightness(workingGuide);
  if (!small || !full) return nullptr;
  const GreyPlane coarse = cellMeans(*full, small->width, small->height);

  std::array<float, 256> rangeWeight;
  for (size_t d = 0; d < rangeWeight.size(); ++d)
    rangeWeight[d] = float(std::exp2(-(double(d) * d) / (kRangeSigma * kRangeSigma)));
  GreyPlane out{full->width, full->height, std::vector<float>(full->width * full->height)};
  const double ux = double(small->width) / double(full->width), uy = double(small->height) / double(full->height);
  const auto clampIndex = [](long i, size_t n) { return size_t(std::clamp<long>(i, 0, long(n) - 1)); };
  BVExecutorParallelFor(out.height, 0, [&](size_t y) {
    const double v = (double(y) + 0.5) * uy - 0.5;
    const long j0 = long(std::floor(v)) - 1;
    for (size_t x = 0; x < out.width; ++x) {
      const double u = (double(x) + 0.5) * ux - 0.5;
      const long i0 = long(std::floor(u)) - 1;
      const float own = full->values[y * full->width + x];
      float sum = 0, weights = 0;
      for (long j = j0; j < j0 + 4; ++j) {
        const size_t row = clampIndex(j, small->height) * small->width;
        const float wy = float(std::max(0.0, 2.0 - std::abs(double(j) - v)));
        for (long i = i0; i < i0 + 4; ++i) {
          const size_t at = row + clampIndex(i, small->width);
          const float wx = float(std::max(0.0, 2.0 - std::abs(double(i) - u)));
          const size_t difference = size_t(std::min(255.0f, std::abs(own - coarse.values[at])));
          const float w = wx * wy * rangeWeight[difference];
          sum += w * small->values[at];
          weights += w;
        }
      }
      out.values[y * out.width + x] = weights > 1e-6f
                                          ? sum / weights
                                          : small->values[clampIndex(long(v + 0.5), small->height) * small->width +
                                                          clampIndex(long(u + 0.5), small->width)];
    }
  });
  const CGRect worked = CGRectIntegral(workingGuide->extent());
  CIImageRef refined = greyImage16(out, CGRectMake(0, 0, worked.size.width, worked.size.height));
  if (!refined) return nullptr;
  CGAffineTransform placed =
      CGAffineTransformMakeScale(target.size.width / worked.size.width, target.size.height / worked.size.height);
  placed.tx = target.origin.x, placed.ty = target.origin.y;
  return worked.size.width != target.size.width || worked.size.height != target.size.height || target.origin.x != 0 ||
                 target.origin.y != 0
             ? refined->imageByApplyingTransform(placed)
             : refined;
}

}  // namespace brenvia
