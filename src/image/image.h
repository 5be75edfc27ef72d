#pragma once

#include "image/image_orientation.h"
#include "platform/coreimage/ci_image.h"
#include "platform/foundation/value.h"
#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_color.h"
#include "platform/graphics/cg_image.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brenvia {

class BVCanvasAdjustment;
class CGContext;
using CGContextRef = std::shared_ptr<CGContext>;
class UIImage;

// Option keys and values of the initialisers that take an options dictionary.
inline constexpr std::string_view kBVImageInitializationOptionStorageAPIKey = "storageAPI";
inline constexpr std::string_view kBVImageInitializationOptionStorageAPICoreImage = "coreImage";
inline constexpr std::string_view kBVImageInitializationOptionStorageAPICoreGraphcs = "coreGraphics";
inline constexpr std::string_view kBVImageInitializationOptionDataUTIKey = "dataUTI";
inline constexpr std::string_view kBVImageInitializationOptionCoreImageOptionsKey = "coreImageOptions";
inline constexpr std::string_view kBVImageInitializationOptionIgnoreDepthDataKey = "ignoreDepthData";
inline constexpr std::string_view kBVImageInitializationOptionApplyOrientationKey = "applyOrientation";

inline constexpr std::string_view kBVUTTypeDNG = "com.adobe.raw-image";

// The picture that every part of the library passes around: one pixel source (a decoded bitmap or
// an engine image), its display orientation and point scale, and a scale adjustment applied after
// all other geometry. Nothing is decoded or rendered until an accessor needs it, except the bitmap
// load of a file. Use from one thread at a time: the bitmap render and the aspect answer are cached
// without locks.
class BVImage {
 public:
  // What holds the pixels (`backingStorage`).
  static constexpr int kBackingStorageNone = 0;
  static constexpr int kBackingStorageCoreGraphics = 1;
  static constexpr int kBackingStorageCoreImage = 2;

  // `init`: an empty picture with the defaults.
  BVImage() = default;

  // Null for a null image.
  static std::shared_ptr<BVImage> initWithCGImage(CGImageRef image);
  // Null for a null image. An orientation in the picture's properties becomes `imageOrientation`.
  static std::shared_ptr<BVImage> initWithCIImage(CIImageRef image);
  // As above; the two auxiliary pictures are stored as given.
  static std::shared_ptr<BVImage> initWithCIImage(CIImageRef image, CIImageRef disparityImage,
                                                  CIImageRef portraitMatteImage);
  // Null when no file exists at the path. Options: the kBVImageInitializationOption... keys.
  static std::shared_ptr<BVImage> initWithContentsOfFile(const std::string& path);
  static std::shared_ptr<BVImage> initWithContentsOfFile(const std::string& path, const Value& options);
  // Null for empty data, and for data the bitmap decoder cannot read. The bitmap load takes the
  // EXIF orientation of the data as `imageOrientation`, as a platform picture decoded from data does.
  static std::shared_ptr<BVImage> initWithData(const std::vector<uint8_t>& data);
  static std::shared_ptr<BVImage> initWithData(const std::vector<uint8_t>& data, const Value& options);

  // EXIF orientation (1-8) of an orientation, and the reverse. An EXIF number outside 1-8 logs and
  // gives up; an orientation above 7 gives EXIF 1.
  static int EXIFOrientationForImageOrientation(BVImageOrientation orientation);
  static BVImageOrientation imageOrientationForEXIFOrientation(int exifOrientation);
  // Degrees by which the stored pixels turn for display (counter-clockwise positive).
  static double _rotationDegreesForImageOrientation(BVImageOrientation orientation);
  // The orientation after `quarterTurns` clockwise quarter turns of the canvas. Mirrored
  // orientations log and come back unchanged.
  static BVImageOrientation _imageOrientationWithAdjustment(BVImageOrientation orientation, uint8_t quarterTurns);

  // Stored pixel size, orientation not applied; CGSizeZero when empty.
  CGSize size() const;
  // The size as displayed: width and height swap for the quarter-turn orientations.
  CGSize sizeWithOrientation() const;
  // The displayed size after the geometry adjustments.
  CGSize sizeWithAdjustments() const;
  // The bitmap's colour space, else the engine image's, else null.
  CGColorSpaceRef colorSpace() const;
  // The engine image, or a new one made from the bitmap on each call, or null.
  CIImageRef CIImage() const;
  // The bitmap, rendered once from the engine image with a context without options and cached.
  CGImageRef CGImage() const;
  // The bitmap with the picture's scale and orientation; null without a bitmap.
  std::shared_ptr<brenvia::UIImage> UIImage() const;
  // Width equals height of `size`, computed once.
  bool isSquare() const;
  int EXIFOrientation() const { return EXIFOrientationForImageOrientation(_imageOrientation); }
  // kBackingStorage...: bitmap first, then engine image.
  int backingStorage() const;
  // The picture that filters work on: the stored picture as it is when there are no geometry
  // adjustments, else the picture turned, cropped, corrected and scaled as the canvas adjustment and
  // the scale adjustment say.
  CIImageRef adjustedCIImage() const;
  // A copy sharing the pixel source; null for an empty picture.
  std::shared_ptr<BVImage> copy() const;

  // JPEG data of the engine image as it is stored (orientation not applied), quality 0 to 1;
  // nothing for an empty picture or a failed encode.
  std::optional<std::vector<uint8_t>> jpegRepresentation(double quality = 1.0) const;
  // "BVTemporaryImage-<absolute time>.jpg" or ".png" in the temporary folder: the path, or nothing
  // when there is no picture or the write failed. The caller deletes the file.
  std::optional<std::string> writeToTemporaryJPEGFile(double quality = 1.0) const;
  // The bitmap as PNG, with its orientation recorded.
  std::optional<std::string> writeToTemporaryPNGFile() const;
  // The mean colour of the bitmap, always opaque; null without a bitmap.
  CGColorRef averageColor() const;
  // Draws the bitmap over the whole clip box of the context.
  void drawInContext(const CGContextRef& context) const;

  // Sets the scale adjustment that makes the upright picture fill (BVImageScalingModeFill, the larger
  // ratio) or fit (BVImageScalingModeFit, the smaller) `target`. Other modes throw
  // std::invalid_argument and leave the scale adjustment alone.
  void setScaleAdjustmentForTargetSize(CGSize target, int mode);
  // A flat picture of the geometry: this picture with `adjustment` instead of its own, rendered and
  // scaled by `scale`, its depth and matte given the same crop and orientation. The result is
  // upright with no adjustment.
  std::shared_ptr<BVImage> imageWithAdjustment(const std::shared_ptr<BVCanvasAdjustment>& adjustment,
                                               double scale) const;
  // imageWithAdjustment with the picture's own adjustment and point scale.
  std::shared_ptr<BVImage> renderAdjustedImage() const;
  // Turns the pixels (and the depth and matte) by the orientation, which becomes up.
  void normalizeToUpOrientation();
  std::shared_ptr<BVImage> imageWithUpOrientation() const;

  BVImageOrientation imageOrientation() const { return _imageOrientation; }
  void setImageOrientation(BVImageOrientation orientation) { _imageOrientation = orientation; }
  double scale() const { return _scale; }
  void setScale(double scale) { _scale = scale; }
  double scaleAdjustment() const { return _scaleAdjustment; }
  void setScaleAdjustment(double scaleAdjustment) { _scaleAdjustment = scaleAdjustment; }
  // The geometry asked of the picture (quarter turns, crop, planar correction), shared with copies.
  const std::shared_ptr<BVCanvasAdjustment>& canvasAdjustment() const { return _canvasAdjustment; }
  void setCanvasAdjustment(std::shared_ptr<BVCanvasAdjustment> adjustment) {
    _canvasAdjustment = std::move(adjustment);
  }
  const CIImageRef& disparityImageStorage() const { return _disparityImageStorage; }
  const CIImageRef& portraitMatteImageStorage() const { return _portraitMatteImageStorage; }
  // Store the depth map, its disparity stretched to 0 to 1, or the portrait matte, each brought to
  // the size of the engine picture with edge-preserving upsampling. Without an engine picture, or
  // when the map cannot be prepared, nothing is stored. `guide`, a smaller copy of the engine picture,
  // spares reading the whole picture for the edges.
  void setDisparityImage(const CIImageRef& disparity, const CIImageRef& guide = nullptr);
  void setPortraitMatteImage(const CIImageRef& matte, const CIImageRef& guide = nullptr);

 private:
  bool _hasGeometryAdjustments() const;
  // The geometry graph of the picture: orientation, crop, planar correction, scale.
  CIImageRef _imageWithGeometryAdjustments(const CIImageRef& picture) const;
  void _setOrientationWithOptions(const Value& options);

  mutable CGImageRef _cgImage;
  double _scale = 1.0;
  BVImageOrientation _imageOrientation = BVImageOrientationUp;
  mutable bool _checkedAspectRatio = false;
  mutable bool _square = false;
  CIImageRef _ciImage;
  double _scaleAdjustment = 1.0;
  std::shared_ptr<BVCanvasAdjustment> _canvasAdjustment;
  CIImageRef _disparityImageStorage;
  CIImageRef _portraitMatteImageStorage;
};

}  // namespace brenvia
