#pragma once

#include "platform/coreimage/ci_value.h"
#include "platform/foundation/value.h"
#include "platform/graphics/cg_image.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brenvia {

namespace ci {
class PointKernel;
class WarpKernel;
class RegionKernel;
class WholeImageKernel;

// The kernel of an operation node, of the node's kind; nothing for sources, transforms and crops.
using KernelRef = std::variant<std::monostate, std::shared_ptr<const PointKernel>, std::shared_ptr<const WarpKernel>,
                               std::shared_ptr<const RegionKernel>, std::shared_ptr<const WholeImageKernel>>;
}  // namespace ci

using CIFilterParameters = std::map<std::string, CIValue, std::less<>>;

// An immutable, deferred picture: a node of the image graph. Building a chain allocates no
// pixels; a CIContext renders a rectangle of it. Every derived image leaves its source as it was.
class CIImage : public std::enable_shared_from_this<CIImage> {
 public:
  enum class Kind { Empty, Color, Bitmap, Point, Warp, Region, WholeImage, Transform, Crop, Clamp };

  // extent (0, 0, w, h), colour space of the bitmap; null for a null bitmap.
  static CIImageRef imageWithCGImage(CGImageRef image);
  static CIImageRef imageWithCGImage(CGImageRef image, Value properties);
  // Infinite extent, one colour everywhere.
  static CIImageRef imageWithColor(const CIColor& color);
  static CIImageRef emptyImage();
  // A decoded picture file (JPEG, PNG, HEIF, WebP, TIFF), with its metadata as properties; orientation is not applied.
  // A non-zero maxPixelSize lets the decoder give a smaller picture whose longer side is still at least that. Null
  // (with one log line) when the file cannot be read.
  static CIImageRef imageWithContentsOfFile(const std::string& path, size_t maxPixelSize = 0);
  static CIImageRef imageWithData(const std::vector<uint8_t>& data, size_t maxPixelSize = 0);
  // The disparity map or portrait matte stored beside the file's main picture (HEIF, or JPEG as
  // phones write it), untagged grey; null, without a log line, when the file has none.
  enum class Auxiliary { Disparity, PortraitMatte };
  static CIImageRef auxiliaryImageWithContentsOfFile(const std::string& path, Auxiliary which);
  static CIImageRef auxiliaryImageWithData(const std::vector<uint8_t>& data, Auxiliary which);

  CIImageRef imageByApplyingTransform(const CGAffineTransform& t) const;
  CIImageRef imageByCroppingToRect(const CGRect& rect) const;
  CIImageRef imageByClampingToExtent() const;
  CIImageRef imageByCompositingOverImage(const CIImageRef& background) const;
  // The named operation with the parameters and this image as inputImage; null when the operation
  // is unknown or gives no output.
  CIImageRef imageByApplyingFilter(std::string_view name, const CIFilterParameters& parameters = {}) const;
  CIImageRef imageBySettingProperties(Value properties) const;
  // EXIF orientation 1-8; other values log and give the image unchanged.
  CIImageRef imageByApplyingOrientation(int orientation) const;

  const CGRect& extent() const { return extent_; }
  // File metadata: "Orientation", "PixelWidth", "PixelHeight", "{Exif}", ... (an empty object when none).
  const Value& properties() const;
  // Null for untagged (data) images.
  const CGColorSpaceRef& colorSpace() const { return colorSpace_; }

  // Graph nodes made by operations.
  static CIImageRef makePoint(std::shared_ptr<const ci::PointKernel> kernel, std::vector<CIImageRef> inputs,
                              const CGRect& extent);
  static CIImageRef makeWarp(std::shared_ptr<const ci::WarpKernel> kernel, CIImageRef input, const CGRect& extent);
  static CIImageRef makeRegion(std::shared_ptr<const ci::RegionKernel> kernel, std::vector<CIImageRef> inputs,
                               const CGRect& extent);
  static CIImageRef makeWholeImage(std::shared_ptr<const ci::WholeImageKernel> kernel, std::vector<CIImageRef> inputs,
                                   const CGRect& extent);

  // What the renderer reads.
  Kind kind() const { return kind_; }
  const std::vector<CIImageRef>& inputs() const { return inputs_; }
  const CGImageRef& bitmap() const { return bitmap_; }
  const CIColor& color() const { return color_; }
  const CGAffineTransform& transform() const { return transform_; }
  // The crop rectangle (Crop) or the clamped extent (Clamp).
  const CGRect& rect() const { return rect_; }
  const ci::KernelRef& kernel() const { return kernel_; }

  CIImage(Kind kind, const CGRect& extent);
  // Takes a chain of images apart in a loop: releasing inputs one inside the other would use the
  // stack once per image of the chain.
  ~CIImage();

 private:
  CIImageRef self() const { return shared_from_this(); }
  static CIImageRef kernelNode(Kind kind, ci::KernelRef kernel, std::vector<CIImageRef> inputs, const CGRect& extent);

  Kind kind_;
  CGRect extent_;
  std::shared_ptr<const Value> properties_;
  CGColorSpaceRef colorSpace_;
  std::vector<CIImageRef> inputs_;
  CGImageRef bitmap_;
  CIColor color_;
  CGAffineTransform transform_;
  CGRect rect_ = CGRectNull;
  ci::KernelRef kernel_;
};

}  // namespace brenvia
