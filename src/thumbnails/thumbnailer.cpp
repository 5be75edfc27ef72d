#include "thumbnails/thumbnailer.h"

#include "image/graphics_utilities.h"
#include "platform/foundation/executor.h"
#include "platform/foundation/log.h"
#include "platform/imageio/image_io.h"
#include "thumbnails/area_average.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <vector>

namespace brenvia {
namespace fs = std::filesystem;

struct BVThumbnailer::Request {
  std::string fullKey, path;
  CGSize size;  // normalised
  double alpha;
  BVThumbnailerOptions options;
};

// A picture to scale. `image` may be a reduced decode of a larger file; `pixelSize` is the size of
// the full picture, which the placement rules compare against.
struct BVThumbnailer::Source {
  CGImageRef image;
  CGSize pixelSize;
};

namespace {

bool isJPEG(BVThumbnailerOptions options) { return options & kBVThumbnailerOptionJPEG; }

CGSize pixelSizeOf(const CGImageRef& image) { return CGSizeMake(double(image->width()), double(image->height())); }

// Where the picture goes on the canvas. A turned placement draws in a space rotated by a quarter
// turn about the canvas centre.
struct Placement {
  CGRect rect;
  bool turned = false;
};

Placement placementFor(CGSize canvas, CGSize requested, CGSize picture, BVThumbnailerOptions options,
                       double defaultAspectRatio) {
  const double w = canvas.width, h = canvas.height, iw = picture.width, ih = picture.height;
  const bool fill = options & kBVThumbnailerOptionScaleToFill, fit = options & kBVThumbnailerOptionScaleToFit;
  if (fill || fit) {
    const double sx = w / iw, sy = h / ih;
    const double s = fill ? std::max(sx, sy) : std::min(sx, sy);
    const double width = s * iw, height = s * ih;
    return {CGRectMake((w - width) * 0.5, (h - height) * 0.5, width, height)};
  }
  const double ratio = iw / ih;
  // A picture with the shape of the request turned on its side is turned, not stretched.
  if (ratio != defaultAspectRatio && requested.height / requested.width == ratio) {
    return {CGRectMake(-(h / 2), -(w / 2), h, w), true};
  }
  return {CGRectMake(0, 0, w, h)};
}

CGSize canvasFor(const CGSize& requested, const CGSize& picture) {
  return requested.width == 0 && requested.height == 0 ? picture : requested;
}

// The picture reduced by area averaging to about the pixels it covers on the canvas, so that the
// final draw hardly scales; pictures that are not larger than that are drawn as they are.
CGImageRef pictureForPlacement(const CGImageRef& image, const CGRect& rect) {
  const auto side = [](double drawn, size_t own) {
    return std::clamp<size_t>(size_t(std::lround(std::max(drawn, 1.0))), 1, own);
  };
  const size_t width = side(rect.size.width, image->width()), height = side(rect.size.height, image->height());
  if (width == image->width() && height == image->height()) return image;
  return BVCreateAreaAveragedImage(image, width, height);
}

// The text with the characters that mean something in a regular expression escaped.
std::string escapedPatternForString(std::string_view text) {
  std::string escaped;
  static constexpr std::string_view kSpecial = "\\^$.|?*+()[]{}";
  for (char c : text) {
    if (kSpecial.find(c) != std::string_view::npos) escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces(1);
  for (char c : text) {
    if (c == separator) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

std::vector<fs::path> entriesOf(const std::string& folder) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    entries.push_back(it->path());
  }
  return entries;
}

}  // namespace

BVThumbnailer& BVThumbnailer::sharedThumbnailer() {
  static BVThumbnailer shared;
  return shared;
}

const std::string& BVThumbnailer::_cachesPath() {
  static const std::string path = [] {
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    const char* home = std::getenv("HOME");
    fs::path base = xdg && *xdg ? fs::path(xdg) : home && *home ? fs::path(home) / ".cache" : fs::temp_directory_path();
    return (base / "com.tarnwick.brenvia" / "BVThumbnailer").string();
  }();
  return path;
}

BVThumbnailer::BVThumbnailer() : BVThumbnailer(_cachesPath()) {}

BVThumbnailer::BVThumbnailer(std::string cacheFolder) : cachesPath_(std::move(cacheFolder)) {
  std::error_code ignored;
  fs::create_directories(cachesPath_, ignored);
}

CGSize BVThumbnailer::maximumSizeForDiskPersistence() const {
  std::lock_guard lock(settingsMutex_);
  return maximumSizeForDiskPersistence_;
}

void BVThumbnailer::setMaximumSizeForDiskPersistence(CGSize size) {
  std::lock_guard lock(settingsMutex_);
  maximumSizeForDiskPersistence_ = size;
}

double BVThumbnailer::defaultAspectRatio() const {
  std::lock_guard lock(settingsMutex_);
  return defaultAspectRatio_;
}

void BVThumbnailer::setDefaultAspectRatio(double ratio) {
  std::lock_guard lock(settingsMutex_);
  defaultAspectRatio_ = ratio;
}

std::string BVThumbnailer::_fullKeyForKey(std::string_view key, CGSize size, double alpha) {
  const CGSize normalized = _normalizedSize(size);
  char suffix[96];
  std::snprintf(suffix, sizeof suffix, "-%0.0fx%0.0f-%0.2f", normalized.width, normalized.height, _steppedAlpha(alpha));
  return std::string(key) + suffix;
}

CGSize BVThumbnailer::_normalizedSize(CGSize size) {
  return CGSizeMake(std::round(size.width), std::round(size.height));
}

double BVThumbnailer::_steppedAlpha(double alpha) {
  const float percent = std::floor(float(alpha * 100.0 + 0.5));
  return double(percent - std::fmod(percent, 5.0f)) / 100.0;
}

std::string BVThumbnailer::pathForKey(std::string_view key, CGSize size, double alpha,
                                      BVThumbnailerOptions options) const {
  return cachesPath_ + "/" + _fullKeyForKey(key, size, alpha) + (isJPEG(options) ? ".jpg" : ".png");
}

bool BVThumbnailer::thumbnailExistsForKey(std::string_view key, CGSize size, double alpha,
                                          BVThumbnailerOptions options) const {
  std::error_code ignored;
  return fs::exists(pathForKey(key, size, alpha, options), ignored);
}

BVThumbnailer::Request BVThumbnailer::_request(std::string_view key, CGSize size, double alpha,
                                               BVThumbnailerOptions options) const {
  return {_fullKeyForKey(key, size, alpha), pathForKey(key, size, alpha, options), _normalizedSize(size), alpha,
          options};
}

std::shared_ptr<BVImage> BVThumbnailer::imageForKey(std::string_view key, CGSize size, double alpha,
                                                    BVThumbnailerOptions options) {
  const Request request = _request(key, size, alpha, options);
  if (auto hit = cache_.objectForKey(request.fullKey)) return hit;
  std::error_code ignored;
  if (!fs::exists(request.path, ignored)) return nullptr;
  auto image = _getSynchronizedImageAtPath(request.path);
  if (image) _cacheImage(image, request.fullKey);
  return image;
}

std::shared_ptr<BVImage> BVThumbnailer::_getSynchronizedImageAtPath(const std::string& path) {
  _waitUntilFinished(path);
  return BVImage::initWithCGImage(CGImageCreateWithContentsOfFile(path));
}

void BVThumbnailer::_cacheImage(const std::shared_ptr<BVImage>& image, const std::string& fullKey) {
  const CGImageRef bitmap = image->CGImage();
  const size_t cost = CGImageGetBytesPerRow(bitmap) * CGImageGetHeight(bitmap);
  if (cost > kMemoryCostLimit) return;
  cache_.setObject(fullKey, image, cost);
}

std::shared_ptr<BVImage> BVThumbnailer::_storedThumbnail(const Request& request) {
  std::error_code error;
  if (!fs::exists(request.path, error)) return nullptr;
  if (auto image = _getSynchronizedImageAtPath(request.path)) {
    _cacheImage(image, request.fullKey);
    return image;
  }
  BVLog("[BVThumbnailer] Found non-image at " + request.path + ". Deleting and regenerating.");
  if (!fs::remove(request.path, error) && error) BVLog("[BVThumbnailer] --> Error deleting: " + error.message());
  return nullptr;
}

std::shared_ptr<BVImage> BVThumbnailer::generateThumbnailWithCGImage(const CGImageRef& image, std::string_view key,
                                                                     CGSize size, double alpha,
                                                                     BVThumbnailerOptions options) {
  if (!image) return nullptr;
  const Request request = _request(key, size, alpha, options);
  if (auto hit = cache_.objectForKey(request.fullKey)) return hit;
  if (auto stored = _storedThumbnail(request)) return stored;
  return _generateOnce(request, [&] { return std::optional<Source>({image, pixelSizeOf(image)}); });
}

std::shared_ptr<BVImage> BVThumbnailer::generateThumbnailWithImagePath(const std::string& path, std::string_view key,
                                                                       CGSize size, double alpha,
                                                                       BVThumbnailerOptions options) {
  const Request request = _request(key, size, alpha, options);
  if (auto hit = cache_.objectForKey(request.fullKey)) return hit;
  if (auto stored = _storedThumbnail(request)) return stored;
  return _generateOnce(request, [&] { return _loadForThumbnail(path, request); });
}

void BVThumbnailer::generateThumbnailWithImagePath(const std::string& path, std::string_view key, CGSize size,
                                                   double alpha, BVThumbnailerOptions options, Completion completion) {
  if (path.empty() || key.empty()) return;
  auto image = imageForKey(key, size, alpha, options);
  if (!image) {
    std::error_code ignored;
    if (!fs::exists(path, ignored)) {
      BVLog("Cannot generate a thumbnail. No file at path: " + path);
      return;
    }
    if (!(image = generateThumbnailWithImagePath(path, key, size, alpha, options))) return;
  }
  if (completion) BVExecutorAsync([completion = std::move(completion), image] { completion(image); });
}

std::shared_ptr<BVImage> BVThumbnailer::_generateOnce(const Request& request,
                                                      const std::function<std::optional<Source>()>& load) {
  if (!_setCurrentlyThumbnailing(request.path)) {
    // Another caller is making this very thumbnail: take its result.
    _waitUntilFinished(request.path);
    if (auto made = cache_.objectForKey(request.fullKey)) return made;
    return BVImage::initWithCGImage(CGImageCreateWithContentsOfFile(request.path));
  }
  struct Finish {
    BVThumbnailer* thumbnailer;
    const std::string& path;
    ~Finish() { thumbnailer->_setFinishedThumbnailing(path); }
  } finish{this, request.path};
  std::optional<Source> source = load();
  return source ? _thumbnailFromSource(*source, request) : nullptr;
}

std::optional<BVThumbnailer::Source> BVThumbnailer::_loadForThumbnail(const std::string& path,
                                                                      const Request& request) const {
  std::error_code ignored;
  if (!fs::exists(path, ignored)) return std::nullopt;
  const std::optional<Value> properties = imageio::readProperties(path);
  if (!properties) return std::nullopt;
  const auto dimension = [&](std::string_view name) {
    const Value* v = BVMember(*properties, name);
    return v ? BVNumber(*v).value_or(0) : 0;
  };
  const CGSize full = CGSizeMake(dimension("PixelWidth"), dimension("PixelHeight"));
  // Decode no larger than the picture's footprint on the canvas needs.
  size_t maxPixelSize = 0;
  if (full.width >= 1 && full.height >= 1) {
    const Placement placement =
        placementFor(canvasFor(request.size, full), request.size, full, request.options, defaultAspectRatio());
    const double needed = std::max(placement.rect.size.width / full.width, placement.rect.size.height / full.height);
    if (needed < 1) maxPixelSize = size_t(std::ceil(needed * std::max(full.width, full.height)));
  }
  std::optional<imageio::DecodedImage> decoded = imageio::decodeFile(path, {.maxPixelSize = maxPixelSize});
  if (!decoded || !decoded->image) return std::nullopt;
  const CGSize own = pixelSizeOf(decoded->image);
  // A reduced decode keeps the full size for the placement rules; a decoder that turned the picture
  // (HEIF) reports its own.
  const bool reduced = own.width <= full.width && own.height <= full.height && own != full;
  return Source{decoded->image, reduced ? full : own};
}

std::shared_ptr<BVImage> BVThumbnailer::_thumbnailFromSource(const Source& source, const Request& request) {
  // Nothing to scale: the picture is its own thumbnail, kept in memory only.
  if (request.alpha == 1.0 && request.size == source.pixelSize && pixelSizeOf(source.image) == source.pixelSize) {
    auto image = BVImage::initWithCGImage(source.image);
    _cacheImage(image, request.fullKey);
    return image;
  }
  std::lock_guard serial(thumbnailingMutex_);
  const CGImageRef drawn = _draw(source, request);
  if (!drawn) return nullptr;
  _persistToDiskIfNeeded(drawn, request.path, isJPEG(request.options));
  auto image = BVImage::initWithCGImage(drawn);
  _cacheImage(image, request.fullKey);
  return image;
}

CGImageRef BVThumbnailer::_draw(const Source& source, const Request& request) const {
  const CGSize canvas = canvasFor(request.size, source.pixelSize);
  if (!(canvas.width >= 1 && canvas.height >= 1 && canvas.width < 32768 && canvas.height < 32768)) return nullptr;
  // A device RGB context like CGBitmapContextCreateWithSize's, in Cairo's own pixel order, so that
  // drawing converts nothing.
  CGContextRef context = CGBitmapContextCreate(nullptr, size_t(canvas.width), size_t(canvas.height), 8, 0,
                                               CGColorSpaceCreateDeviceRGB(), kBVBGRA8BitmapInfo);
  if (!context) return nullptr;
  const Placement placement =
      placementFor(canvas, request.size, source.pixelSize, request.options, defaultAspectRatio());
  const CGImageRef picture = pictureForPlacement(source.image, placement.rect);
  if (placement.turned) {
    CGContextTranslateCTM(context, canvas.width / 2, canvas.height / 2);
    CGContextRotateCTM(context, 1.5707963267948966);
  }
  CGContextSetAlpha(context, request.alpha);
  CGContextDrawImage(context, placement.rect, picture);
  return CGBitmapContextCreateImage(context);
}

void BVThumbnailer::_persistToDiskIfNeeded(const CGImageRef& image, const std::string& path, bool jpeg) const {
  const CGSize limit = maximumSizeForDiskPersistence();
  if (limit.width < double(image->width()) || limit.height < double(image->height())) return;
  std::vector<uint8_t> bytes;
  bool written = jpeg ? imageio::encodeJPEG(*image, {}, bytes) : imageio::encodePNG(*image, {}, bytes);
  // A damaged thumbnail is found when read and made again, so the file is not flushed to disk:
  // the rename alone keeps a crashing process from leaving part of one.
  std::string error;
  written = written && imageio::writeFileAtomically(path, bytes, &error, imageio::WriteDurability::Renamed);
  if (!written) BVLog("[Brenvia] Failed to write image to " + path);
}

void BVThumbnailer::setThumbnail(const std::shared_ptr<BVImage>& image, std::string_view key,
                                 BVThumbnailerOptions format) {
  const CGImageRef bitmap = image ? image->CGImage() : nullptr;
  if (!bitmap) return;
  const Request request = _request(key, image->size(), 1.0, format);
  while (!_setCurrentlyThumbnailing(request.path)) _waitUntilFinished(request.path);
  {
    std::lock_guard serial(thumbnailingMutex_);
    _persistToDiskIfNeeded(bitmap, request.path, isJPEG(format));
    _cacheImage(image, request.fullKey);
  }
  _setFinishedThumbnailing(request.path);
}

int64_t BVThumbnailer::totalCachedByteSizeForKey(std::string_view key) const {
  int64_t total = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(cachesPath_, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().lexically_relative(cachesPath_).string();
    std::error_code sizeError;
    const uintmax_t bytes = it->is_regular_file(sizeError) ? it->file_size(sizeError) : 0;
    if (name.starts_with(key) && !sizeError) total += int64_t(bytes);
  }
  return total;
}

void BVThumbnailer::removeThumbnailsWithKey(std::string_view key) {
  std::string expression = "^";
  expression += escapedPatternForString(key);
  expression += R"((~[0-9a-f]+)?-[0-9]+x[0-9]+-[0-9]\.[0-9]{2}\.[a-zA-Z]{3,4}$)";
  const std::regex pattern(expression);
  for (const fs::path& entry : entriesOf(cachesPath_)) {
    std::string name = entry.filename().string();
    if (!std::regex_search(name, pattern)) continue;
    // The memory key is the name without its dot and three-letter extension.
    name.resize(name.size() - 4);
    cache_.removeObjectForKey(name);
    std::error_code ignored;
    fs::remove(entry, ignored);
  }
}

void BVThumbnailer::removeAllThumbnails() {
  cache_.removeAllObjects();
  for (const fs::path& entry : entriesOf(cachesPath_)) {
    std::error_code ignored;
    fs::remove_all(entry, ignored);
  }
}

void BVThumbnailer::removeThumbnailsLargerThan(CGSize size) {
  for (const fs::path& entry : entriesOf(cachesPath_)) {
    const std::vector<std::string> pieces = split(entry.filename().string(), '-');
    if (pieces.size() < 3) continue;
    const std::vector<std::string> sides = split(pieces[pieces.size() - 2], 'x');
    if (sides.size() != 2) continue;
    const double width = std::strtof(sides[0].c_str(), nullptr), height = std::strtof(sides[1].c_str(), nullptr);
    if (size.width <= width || size.height <= height) {
      std::error_code ignored;
      fs::remove(entry, ignored);
    }
  }
}

bool BVThumbnailer::_setCurrentlyThumbnailing(const std::string& path) {
  std::lock_guard lock(accessMutex_);
  return thumbnailingPaths_.insert(path).second;
}

void BVThumbnailer::_setFinishedThumbnailing(const std::string& path) {
  {
    std::lock_guard lock(accessMutex_);
    thumbnailingPaths_.erase(path);
  }
  finished_.notify_all();
}

void BVThumbnailer::_waitUntilFinished(const std::string& path) {
  std::unique_lock lock(accessMutex_);
  finished_.wait(lock, [&] { return !thumbnailingPaths_.contains(path); });
}

}  // namespace brenvia
