#include "filter/filter.h"

#include "image/brenvia_bundle.h"
#include "image/graphics_utilities.h"
#include "image/image.h"
#include "platform/coreimage/ci_image.h"
#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"
#include "thumbnails/thumbnailer.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

std::atomic<BVFilterAssetLocation> gAssetLocation{BVFilterAssetLocationFiles};
std::atomic<double> gDefaultAspectRatio{1.0};
std::atomic<bool> gAllowsFilesOutsideAssets{false};

bool fileExists(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

// The number the whole text spells, or nothing (no blanks, nothing behind the number).
std::optional<double> wholeNumber(const std::string& text) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  return value;
}

// The pieces of a file name without its extension, split at "-", empty pieces dropped.
std::vector<std::string> dashPieces(const fs::path& file) {
  std::vector<std::string> pieces;
  std::string stem = file.stem().string();
  size_t start = 0;
  while (start <= stem.size()) {
    size_t dash = stem.find('-', start);
    if (dash == std::string::npos) dash = stem.size();
    if (dash > start) pieces.push_back(stem.substr(start, dash - start));
    start = dash + 1;
  }
  return pieces;
}

// Thumbnails are scaled to fill (256) or fit (512) for those modes, stretched otherwise.
BVThumbnailerOptions thumbnailOptions(int scalingMode) {
  if (scalingMode == BVImageScalingModeFill) return kBVThumbnailerOptionScaleToFill;
  if (scalingMode == BVImageScalingModeFit) return kBVThumbnailerOptionScaleToFit;
  return 0;
}

std::string widthText(double width) {
  char text[64];
  std::snprintf(text, sizeof text, "%0.0f", width);
  return text;
}

}  // namespace

BVFilterAssetLocation BVFilter::assetLocation() { return gAssetLocation; }
void BVFilter::setAssetLocation(BVFilterAssetLocation location) {
  if (location != BVFilterAssetLocationFiles) {
    BVLog(
        "[BVFilter] There is no asset catalogue on this platform; pictures "
        "are looked up as files.");
  }
  gAssetLocation = location;
}
double BVFilter::defaultAspectRatio() { return gDefaultAspectRatio; }
// The thumbnailer stretches pictures of this ratio to any request, so it learns the ratio too.
void BVFilter::setDefaultAspectRatio(double ratio) {
  gDefaultAspectRatio = ratio;
  BVThumbnailer::sharedThumbnailer().setDefaultAspectRatio(ratio);
}

bool BVFilter::allowsFilesOutsideAssets() { return gAllowsFilesOutsideAssets; }

void BVFilter::setAllowsFilesOutsideAssets(bool allowed) { gAllowsFilesOutsideAssets = allowed; }

bool BVFilter::isNameInsideAssets(const std::string& name) const {
  const fs::path path = fs::path(name).lexically_normal();
  const bool inside = !name.empty() && path.is_relative() && *path.begin() != "..";
  if (!inside && !allowsFilesOutsideAssets()) {
    BVLog("[" + className() + "] `" + name + "` is not a file name inside the asset folder; it is passed over.");
    return false;
  }
  return true;
}

namespace {

// Whether `path`, its links followed, lies inside `folder`, its links followed too.
bool resolvesInside(const std::string& path, const std::string& folder) {
  std::error_code error;
  const fs::path file = fs::weakly_canonical(path, error), root = fs::weakly_canonical(folder, error);
  if (error) return false;
  return std::mismatch(root.begin(), root.end(), file.begin(), file.end()).first == root.end();
}

}  // namespace

bool BVFilter::isFileInsideAssets(const std::string& path) const {
  if (allowsFilesOutsideAssets() || !imageSearchPath()) return true;
  if (resolvesInside(path, *imageSearchPath()) || resolvesInside(path, BVBundle::brenviaBundle().resourcePath()))
    return true;
  BVLog("[" + className() + "] `" + path + "` leads out of the asset folder through a link; it is passed over.");
  return false;
}

std::string BVFilter::prefixedImageName(const std::string& name) const {
  return imagePrefix() ? *imagePrefix() + "_" + name : name;
}

std::optional<std::string> BVFilter::pathForImageNamed(const std::string& name, CGSize size, int scalingMode) const {
  if (!isNameInsideAssets(name)) return std::nullopt;
  const std::string prefixed = prefixedImageName(name);
  std::vector<std::string> candidates;
  if (imageSearchPath()) {
    const std::string base = *imageSearchPath() + "/" + prefixed;
    candidates = {base + ".png", base + ".jpg", base + ".jpeg", base + "_" + widthText(size.width) + ".jpg",
                  base + "_1936.jpg"};
  }
  if (scalingMode == BVImageScalingModeCustom) {
    const double aspect = size.width / size.height;
    if (aspect != defaultAspectRatio()) {
      if (auto custom = pathForCustomAspectRatioImageNamed(prefixed, aspect)) return custom;
    }
  }
  const BVBundle& bundle = BVBundle::brenviaBundle();
  for (std::string_view type : {"jpg", "png"}) {
    if (auto resource = bundle.pathForResource(prefixed, type)) candidates.push_back(*resource);
  }
  for (const std::string& candidate : candidates) {
    if (fileExists(candidate)) return isFileInsideAssets(candidate) ? std::optional(candidate) : std::nullopt;
  }
  return std::nullopt;
}

// A picture wins only when nearer the ratio than a square one; an exact match ends the search.
std::optional<std::string> BVFilter::pathForCustomAspectRatioImageNamed(const std::string& prefixedName,
                                                                        double ratio) const {
  if (!imageSearchPath()) return std::nullopt;
  std::error_code error;
  fs::directory_iterator listing(*imageSearchPath(), error);
  if (error) return std::nullopt;
  double bestDifference = std::abs(1.0 - ratio);
  std::optional<fs::path> best;
  for (const fs::directory_entry& entry : listing) {
    const fs::path file = entry.path().filename();
    if (file.string().front() == '.') continue;
    const std::vector<std::string> pieces = dashPieces(file);
    if (pieces.empty() || pieces.front() != prefixedName) continue;
    const std::optional<double> number = wholeNumber(pieces.back());
    if (!number) continue;
    const double difference = std::abs(*number - ratio);
    if (difference < bestDifference) {
      bestDifference = difference;
      best = file;
    }
    if (*number == ratio) break;
  }
  if (!best) return std::nullopt;
  return (fs::path(*imageSearchPath()) / *best).string();
}

namespace {

// "BVFilter-prefix_name" with a prefix, else "BVFilter-<last folder of the search path>-name": the
// start of the keys of every thumbnail of the name.
std::string nameKey(const BVFilter& filter, const std::string& name) {
  if (filter.imagePrefix()) return "BVFilter-" + filter.prefixedImageName(name);
  const std::string folder =
      filter.imageSearchPath() ? fs::path(*filter.imageSearchPath()).filename().string() : "(null)";
  return "BVFilter-" + folder + "-" + name;
}

// The name's key with a stamp of the file (full path, size, modification time) and the scaling, so
// that a file of the same name in another folder, an edited file or another scaling never meets a
// thumbnail made before.
std::string thumbnailKey(const BVFilter& filter, const std::string& name, const std::string& path, int scalingMode) {
  std::error_code error;
  std::string identity = fs::absolute(path, error).string();
  identity += '\n' + std::to_string(fs::file_size(path, error));
  identity += '\n' + std::to_string(fs::last_write_time(path, error).time_since_epoch().count());
  identity += '\n' + std::to_string(scalingMode);
  uint64_t hash = 14695981039346656037ull;  // FNV-1a
  for (unsigned char c : identity) hash = (hash ^ c) * 1099511628211ull;
  char stamp[24];
  std::snprintf(stamp, sizeof stamp, "~%016llx", static_cast<unsigned long long>(hash));
  return nameKey(filter, name) + stamp;
}

}  // namespace

std::shared_ptr<BVImage> BVFilter::imageNamed(const std::string& name, CGSize size, int scalingMode) const {
  std::optional<std::string> path = pathForImageNamed(name, size, scalingMode);
  if (!path) {
    BVLog("[Brenvia] Failed to find image for `" + name + "`");
    return nullptr;
  }
  BVThumbnailer& thumbnailer = BVThumbnailer::sharedThumbnailer();
  const std::string key = thumbnailKey(*this, name, *path, scalingMode);
  const BVThumbnailerOptions options = thumbnailOptions(scalingMode);
  if (auto cached = thumbnailer.imageForKey(key, size, 1.0, options)) return cached;
  return thumbnailer.generateThumbnailWithImagePath(*path, key, size, 1.0, options);
}

void BVFilter::prepareToProcessImageNamed(const std::string& name, CGSize size, int scalingMode) const {
  std::optional<std::string> path = pathForImageNamed(name, size, scalingMode);
  if (!path) return;
  BVThumbnailer& thumbnailer = BVThumbnailer::sharedThumbnailer();
  const std::string key = thumbnailKey(*this, name, *path, scalingMode);
  const BVThumbnailerOptions options = thumbnailOptions(scalingMode);
  if (!thumbnailer.thumbnailExistsForKey(key, size, 1.0, options)) {
    thumbnailer.generateThumbnailWithImagePath(*path, key, size, 1.0, options);
  }
}

void BVFilter::clearProcessingCacheForImageNamed(const std::string& name) const {
  BVThumbnailer::sharedThumbnailer().removeThumbnailsWithKey(nameKey(*this, name));
}

int64_t BVFilter::processingCachesByteSizeForImageNamed(const std::string& name) const {
  return BVThumbnailer::sharedThumbnailer().totalCachedByteSizeForKey(nameKey(*this, name));
}

CIImageRef BVFilter::CIImageNamed(const std::string& name, CGSize size, int scalingMode,
                                  BVImagePosition position) const {
  std::optional<std::string> path = pathForImageNamed(name, size, scalingMode);
  if (!path) {
    BVLog("[BVFilter] Unable to find image named `" + name + "`");
    return nullptr;
  }
  auto cachedRoute = [&]() -> CIImageRef {
    std::shared_ptr<BVImage> image = imageNamed(name, size, scalingMode);
    return image ? image->CIImage() : nullptr;
  };
  // The pixel size comes from the file's header: the picture is not decoded to learn it.
  CGSize pixels = CGSizeZero;
  if (std::optional<Value> properties = imageio::readProperties(*path)) {
    pixels = {BVNumber((*properties)["PixelWidth"]).value_or(0), BVNumber((*properties)["PixelHeight"]).value_or(0)};
  }
  const CGSize limit = BVThumbnailer::sharedThumbnailer().maximumSizeForDiskPersistence();
  if (position == kBVImagePositionNone && (size.width <= limit.width || size.height <= limit.height)) {
    return cachedRoute();
  }
  CIImageRef full = CIImage::imageWithContentsOfFile(*path);
  return full ? placedImage(full, pixels, scalingMode, position, size) : nullptr;
}

CIImageRef BVFilter::placedImage(const CIImageRef& image, CGSize imageSize, int scalingMode, BVImagePosition position,
                                 CGSize target) {
  if (imageSize.width == target.width && imageSize.height == target.height) return image;
  CGRect rect;
  switch (scalingMode) {
    case BVImageScalingModeStretch:
    case BVImageScalingModeCustom: rect = CGRectMake(0, 0, target.width, target.height); break;
    case BVImageScalingModeFill: rect = BVGetRectToFillSizeInSize(imageSize, target); break;
    case BVImageScalingModeFit: rect = BVGetRectToFitSizeInSize(imageSize, target); break;
    default: throw std::logic_error("unknown scaling mode");
  }
  if (position & kBVImagePositionTop) rect.origin.y = target.height - rect.size.height;
  if (position & kBVImagePositionLeft) rect.origin.x = 0;
  if (position & kBVImagePositionBottom) rect.origin.y = 0;
  if (position & kBVImagePositionRight) rect.origin.x = target.width - rect.size.width;
  CGAffineTransform t =
      CGAffineTransformMakeScale(rect.size.width / imageSize.width, rect.size.height / imageSize.height);
  t.tx = rect.origin.x;
  t.ty = rect.origin.y;
  return image->imageByApplyingTransform(t);
}

}  // namespace brenvia
