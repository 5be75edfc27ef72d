#pragma once

// Scaled copies of pictures, kept in memory for everybody and on disk when they are small.
//
// A thumbnail is named by the caller's key, its size in pixels, its alpha and its file format:
// "<key>-<W>x<H>-<alpha>.<png|jpg>" in the cache folder, the size rounded to whole pixels and the
// alpha taken down to a multiple of 0.05. Disk files are written under a temporary name and renamed
// into place, so a crashing process never leaves part of one; a file that cannot be read as a
// picture (a power loss may leave one) is deleted and made again.

#include "image/image.h"
#include "image/ui_image.h"
#include "platform/geometry/geometry.h"
#include "platform/graphics/cg_image.h"
#include "thumbnails/image_cost_cache.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace brenvia {

// Option bits of the thumbnail calls.
using BVThumbnailerOptions = uint64_t;
// The file is a JPEG ("jpg"); without this bit a PNG.
inline constexpr BVThumbnailerOptions kBVThumbnailerOptionJPEG = 2;
// Scale by the larger of the two factors and cut the overflow; wins over fit.
inline constexpr BVThumbnailerOptions kBVThumbnailerOptionScaleToFill = 0x100;
// Scale by the smaller of the two factors; the rest of the canvas stays clear.
inline constexpr BVThumbnailerOptions kBVThumbnailerOptionScaleToFit = 0x200;

class BVThumbnailer {
 public:
  using Completion = std::function<void(std::shared_ptr<BVImage>)>;

  // Memory is bounded by this many bytes of bitmap; a bigger picture is never kept in memory.
  static constexpr size_t kMemoryCostLimit = 104857600;

  // The one object the process shares, over the default cache folder.
  static BVThumbnailer& sharedThumbnailer();
  // "<user cache folder>/com.tarnwick.brenvia/BVThumbnailer", worked out once per process:
  // $XDG_CACHE_HOME, else ~/.cache, else the temporary folder.
  static const std::string& _cachesPath();

  // A thumbnailer over a cache folder, which is made when missing (a failure leaves thumbnails in
  // memory only).
  BVThumbnailer();
  explicit BVThumbnailer(std::string cacheFolder);
  BVThumbnailer(const BVThumbnailer&) = delete;
  BVThumbnailer& operator=(const BVThumbnailer&) = delete;

  const std::string& cacheFolder() const { return cachesPath_; }
  // The largest thumbnail written to disk, in pixels (128 x 128 by default: 128 points at the
  // scale of 1 that a system without a screen has). A change applies to later writes.
  CGSize maximumSizeForDiskPersistence() const;
  void setMaximumSizeForDiskPersistence(CGSize size);
  // Pictures of this aspect ratio are stretched to any request that names no scaling (1.0 by
  // default); the filter layer sets it to the ratio its plain picture files are made for.
  double defaultAspectRatio() const;
  void setDefaultAspectRatio(double ratio);

  // "<key>-<W>x<H>-<alpha>" with the normalised size and the stepped alpha.
  static std::string _fullKeyForKey(std::string_view key, CGSize size, double alpha);
  // Each side rounded to the nearest whole number, halves away from zero.
  static CGSize _normalizedSize(CGSize size);
  // alpha rounded to a whole percent, then taken down to a multiple of 0.05.
  static double _steppedAlpha(double alpha);

  // The thumbnail's file path, whether a file is there or not.
  std::string pathForKey(std::string_view key, CGSize size, double alpha, BVThumbnailerOptions options) const;
  // Whether the file exists; memory is not consulted.
  bool thumbnailExistsForKey(std::string_view key, CGSize size, double alpha, BVThumbnailerOptions options) const;
  // From memory, else from disk (then kept in memory); never generates.
  std::shared_ptr<BVImage> imageForKey(std::string_view key, CGSize size, double alpha, BVThumbnailerOptions options);

  // The thumbnail of the picture, from memory or disk when it is there, else made now. A size of
  // zero by zero keeps the picture's own size. Null for a null picture. Concurrent requests for one
  // thumbnail make it once; the others wait for it.
  std::shared_ptr<BVImage> generateThumbnailWithCGImage(const CGImageRef& image, std::string_view key, CGSize size,
                                                        double alpha, BVThumbnailerOptions options);
  // The same from a picture file, decoded no larger than the thumbnail needs (JPEG DCT scaling, a
  // thumbnail stored in a HEIF file).
  // Null when the file cannot be read as a picture.
  std::shared_ptr<BVImage> generateThumbnailWithImagePath(const std::string& path, std::string_view key, CGSize size,
                                                          double alpha, BVThumbnailerOptions options);
  // The same, calling `completion` on the executor's pool with the thumbnail. Nothing happens without
  // a path or a key; a missing file logs a line; neither it nor an unreadable picture calls back.
  void generateThumbnailWithImagePath(const std::string& path, std::string_view key, CGSize size, double alpha,
                                      BVThumbnailerOptions options, Completion completion);

  // Stores a picture the caller made, at its own size and alpha 1. `format` takes the option bits:
  // kBVThumbnailerOptionJPEG for a JPEG file, anything else PNG. The disk size limit applies.
  void setThumbnail(const std::shared_ptr<BVImage>& image, std::string_view key, BVThumbnailerOptions format);

  // Bytes of the cache folder's files whose names start with `key` (so key "a" counts "ab-...").
  int64_t totalCachedByteSizeForKey(std::string_view key) const;
  // Deletes the files of exactly this key (with or without a "~<hex>" stamp of the source file), and
  // their memory entries.
  void removeThumbnailsWithKey(std::string_view key);
  // Empties memory and the cache folder; the folder stays.
  void removeAllThumbnails();
  // Deletes the files whose width reaches the limit's width or whose height reaches its height.
  // Memory is left alone.
  void removeThumbnailsLargerThan(CGSize size);

  // --- Sizes in points, pictures as UIImage objects at the screen's scale ---
  // Points to pixels: 1 here, where no screen tells another factor.
  static constexpr double kScreenScale = 1.0;
  std::string pathForKeyInPoints(std::string_view key, CGSize points, double alpha, BVThumbnailerOptions options) const;
  std::shared_ptr<UIImage> UIImageForKey(std::string_view key, CGSize points, double alpha,
                                         BVThumbnailerOptions options);
  std::shared_ptr<UIImage> generateUIImageWithImagePath(const std::string& path, std::string_view key, CGSize points,
                                                        double alpha, BVThumbnailerOptions options);
  // The thumbnail of a picture object, keeping its orientation.
  std::shared_ptr<UIImage> generateThumbnailWithUIImage(const UIImage& image, std::string_view key, CGSize points,
                                                        double alpha, BVThumbnailerOptions options);

 private:
  struct Request;
  struct Source;

  Request _request(std::string_view key, CGSize size, double alpha, BVThumbnailerOptions options) const;
  std::shared_ptr<BVImage> _getSynchronizedImageAtPath(const std::string& path);
  void _cacheImage(const std::shared_ptr<BVImage>& image, const std::string& fullKey);
  // The thumbnail found on disk; a file there that is no picture is deleted.
  std::shared_ptr<BVImage> _storedThumbnail(const Request& request);
  std::shared_ptr<BVImage> _generateOnce(const Request& request, const std::function<std::optional<Source>()>& load);
  std::shared_ptr<BVImage> _thumbnailFromSource(const Source& source, const Request& request);
  std::optional<Source> _loadForThumbnail(const std::string& path, const Request& request) const;
  CGImageRef _draw(const Source& source, const Request& request) const;
  void _persistToDiskIfNeeded(const CGImageRef& image, const std::string& path, bool jpeg) const;

  // The set of paths under generation, and the wait for one of them to finish.
  bool _setCurrentlyThumbnailing(const std::string& path);
  void _setFinishedThumbnailing(const std::string& path);
  void _waitUntilFinished(const std::string& path);

  std::string cachesPath_;
  std::mutex accessMutex_;
  std::condition_variable finished_;
  std::set<std::string> thumbnailingPaths_;
  // Generation runs one at a time.
  std::mutex thumbnailingMutex_;
  BVImageCostCache cache_{kMemoryCostLimit};
  mutable std::mutex settingsMutex_;
  CGSize maximumSizeForDiskPersistence_{128, 128};
  double defaultAspectRatio_ = 1.0;
};

}  // namespace brenvia
