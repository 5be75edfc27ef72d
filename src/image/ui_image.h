#pragma once

// The picture and colour objects of the platform's UI toolkit, as far as the library uses them:
// a bitmap with a point scale and a display orientation, and a colour, with the conversions the
// rest of the library asks of them.

#include "image/image_orientation.h"
#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_color.h"
#include "platform/graphics/cg_image.h"
#include "platform/graphics/vimage.h"

#include <memory>
#include <string_view>

namespace brenvia {

class BVImage;

class UIImage {
 public:
  // Null for a null bitmap.
  static std::shared_ptr<UIImage> imageWithCGImage(CGImageRef image, double scale = 1.0,
                                                   BVImageOrientation orientation = BVImageOrientationUp);

  const CGImageRef& CGImage() const { return _cgImage; }
  double scale() const { return _scale; }
  BVImageOrientation imageOrientation() const { return _imageOrientation; }
  // In points: the pixel size over the scale, width and height swapped for quarter turns.
  CGSize size() const;

  // A picture object with this bitmap, scale and orientation.
  std::shared_ptr<brenvia::BVImage> BVImage() const;
  // The bitmap's pixels in a buffer the caller frees; an empty record, with a log line, on failure.
  brenvia::vImage_Buffer vImage_Buffer() const;
  // The bitmap stretched to `size` pixels, or turned counter-clockwise by `degrees` on a canvas
  // that holds all of it. The results have scale 1 and the up orientation, whatever the receiver's.
  std::shared_ptr<UIImage> scaledImageWithSize(CGSize size) const;
  std::shared_ptr<UIImage> rotatedImageWithAngle(double degrees) const;

 private:
  CGImageRef _cgImage;
  double _scale = 1.0;
  BVImageOrientation _imageOrientation = BVImageOrientationUp;
};

class UIColor {
 public:
  // Null for a null colour.
  static std::shared_ptr<UIColor> colorWithCGColor(CGColorRef color);
  // The colour CGColorCreateWithHex reads from the text; null when it reads none.
  static std::shared_ptr<UIColor> initWithHex(std::string_view hex);

  const CGColorRef& CGColor() const { return _cgColor; }

 private:
  CGColorRef _cgColor;
};

// The device the library runs on, as far as the library asks about it.
class UIDevice {
 public:
  static const UIDevice& currentDevice();
  // Whether RAW pictures can be developed with help of the GPU. No GPU device is used here, so
  // the answer is always false.
  bool supportsRAWEditing() const { return false; }
};

}  // namespace brenvia
