#pragma once

#include "platform/coreimage/ci_context.h"
#include "platform/graphics/color_space.h"

#include <cstddef>
#include <string>

namespace brenvia {

// Fills tiles of a picture file for a lazily tiled engine image. Each tile decodes the whole file
// again: the provider holds no pixels.
class BVCIImageDataProvider {
 public:
  BVCIImageDataProvider(std::string imageURL, CGColorSpaceRef colorSpace)
      : _imageURL(std::move(imageURL)), _colorSpace(std::move(colorSpace)) {}

  // Tiles are premultiplied A, R, G, B bytes.
  CIFormat format() const { return kCIFormatARGB8; }
  // Writes the tile of `width` by `height` pixels whose top-left corner is (originX, originY) of
  // the picture, counted from its top-left. Leaves the memory alone when the file cannot be read.
  void provideImageData(void* data, size_t bytesPerRow, size_t originX, size_t originY, size_t width,
                        size_t height) const;

 private:
  std::string _imageURL;
  CGColorSpaceRef _colorSpace;
};

}  // namespace brenvia
