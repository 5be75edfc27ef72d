#include "thumbnails/thumbnailer.h"

namespace brenvia {
namespace {

CGSize pixelSizeForPoints(CGSize points) {
  return {points.width * BVThumbnailer::kScreenScale, points.height * BVThumbnailer::kScreenScale};
}

// The thumbnail at the screen's scale (the memory cache hands out its own object, which takes it).
std::shared_ptr<UIImage> atScreenScale(const std::shared_ptr<BVImage>& image) {
  if (!image) return nullptr;
  image->setScale(BVThumbnailer::kScreenScale);
  return image->UIImage();
}

}  // namespace

std::string BVThumbnailer::pathForKeyInPoints(std::string_view key, CGSize points, double alpha,
                                              BVThumbnailerOptions options) const {
  return pathForKey(key, pixelSizeForPoints(points), alpha, options);
}

std::shared_ptr<UIImage> BVThumbnailer::UIImageForKey(std::string_view key, CGSize points, double alpha,
                                                      BVThumbnailerOptions options) {
  return atScreenScale(imageForKey(key, pixelSizeForPoints(points), alpha, options));
}

std::shared_ptr<UIImage> BVThumbnailer::generateUIImageWithImagePath(const std::string& path, std::string_view key,
                                                                     CGSize points, double alpha,
                                                                     BVThumbnailerOptions options) {
  return atScreenScale(generateThumbnailWithImagePath(path, key, pixelSizeForPoints(points), alpha, options));
}

std::shared_ptr<UIImage> BVThumbnailer::generateThumbnailWithUIImage(const UIImage& image, std::string_view key,
                                                                     CGSize points, double alpha,
                                                                     BVThumbnailerOptions options) {
  std::shared_ptr<BVImage> thumbnail =
      generateThumbnailWithCGImage(image.CGImage(), key, pixelSizeForPoints(points), alpha, options);
  if (!thumbnail) return nullptr;
  thumbnail->setScale(kScreenScale);
  thumbnail->setImageOrientation(image.imageOrientation());
  return thumbnail->UIImage();
}

}  // namespace brenvia
