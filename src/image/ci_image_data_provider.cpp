#include "image/ci_image_data_provider.h"

#include "image/graphics_utilities.h"

namespace brenvia {

void BVCIImageDataProvider::provideImageData(void* data, size_t bytesPerRow, size_t originX, size_t originY,
                                             size_t width, size_t height) const {
  CGImageRef image = CGImageCreateWithContentsOfFile(_imageURL);
  if (!image) return;
  CGContextRef context = CGBitmapContextCreate(data, width, height, 8, bytesPerRow,
                                               _colorSpace ? _colorSpace : CGColorSpaceCreateDeviceRGB(),
                                               kBVARGB8BitmapInfo);
  if (!context) return;
  const double imageWidth = double(image->width()), imageHeight = double(image->height());
  CGContextClearRect(context, CGRectMake(0, 0, double(width), double(height)));
  // The context is y-up: this puts row originY of the picture at the top of the tile.
  CGContextTranslateCTM(context, -double(originX), double(height) - imageHeight + double(originY));
  CGContextDrawImage(context, CGRectMake(0, 0, imageWidth, imageHeight), image);
}

}  // namespace brenvia
