#include "commands.h"
#include "messages.h"
#include "thread_option.h"

#include "platform/coreimage/ci_context.h"
#include "platform/foundation/executor.h"
#include "platform/foundation/value.h"
#include "platform/imageio/image_io.h"
#include "thumbnails/thumbnailer.h"

#include <CLI/CLI.hpp>

#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <mutex>

namespace brenvia::cli {
namespace {

namespace fs = std::filesystem;

struct ThumbnailSettings {
  std::vector<std::string> inputs;
  int size = 0;
  std::string cache;
  std::string format = "jpg";
  int threads = 0;
};

std::mutex outputMutex;

// The input's file stem and a hash of its absolute path: pictures of one name in different folders
// stay apart, and a later run finds the same thumbnails again.
std::string keyFor(const std::string& input) {
  std::error_code ignored;
  const fs::path absolute = fs::absolute(input, ignored);
  uint32_t hash = 2166136261u;  // FNV-1a
  for (unsigned char c : absolute.string()) hash = (hash ^ c) * 16777619u;
  char hex[9];
  std::snprintf(hex, sizeof hex, "%08x", hash);
  return absolute.stem().string() + "-" + hex;
}

struct Shape {
  CGSize stored;    // the thumbnail's size in the file's stored orientation
  int orientation;  // EXIF 1-8
};

// The size whose longer side is `longest` pixels, with the picture's shape, and the file's
// orientation; nothing when the file's header cannot be read.
std::optional<Shape> thumbnailShapeFor(const std::string& input, int longest) {
  std::optional<Value> properties = imageio::readProperties(input);
  if (!properties) return std::nullopt;
  const Value* w = BVMember(*properties, "PixelWidth");
  const Value* h = BVMember(*properties, "PixelHeight");
  const Value* o = BVMember(*properties, "Orientation");
  const double width = w ? BVNumber(*w).value_or(0) : 0, height = h ? BVNumber(*h).value_or(0) : 0;
  if (width < 1 || height < 1) return std::nullopt;
  const double scale = longest / std::max(width, height);
  const int orientation = int(o ? BVNumber(*o).value_or(1) : 1);
  return Shape{CGSizeMake(std::max(1.0, std::round(width * scale)), std::max(1.0, std::round(height * scale))),
               orientation >= 2 && orientation <= 8 ? orientation : 1};
}

// The thumbnail turned upright, as people look at the photo, under a key of its own.
std::shared_ptr<BVImage> upright(const std::shared_ptr<BVImage>& stored, int orientation) {
  CIImageRef turned = stored->CIImage()->imageByApplyingOrientation(orientation);
  CGImageRef pixels = CIContext::contextWithOptions({})->createCGImage(turned, turned->extent());
  return pixels ? BVImage::initWithCGImage(pixels) : nullptr;
}

// Makes the thumbnail of one input in the cache folder; its path, or nothing (with one line on
// stderr) on failure.
std::optional<std::string> thumbnailOne(BVThumbnailer& thumbnailer, const ThumbnailSettings& s,
                                        const std::string& input) {
  std::error_code error;
  if (!fs::is_regular_file(input, error)) {
    fail(input, fs::exists(input, error) ? "not a file" : "no such file");
    return std::nullopt;
  }
  const std::optional<Shape> shape = thumbnailShapeFor(input, s.size);
  const BVThumbnailerOptions options = s.format == "jpg" ? kBVThumbnailerOptionJPEG : 0;
  std::string key = keyFor(input);
  auto image = shape ? thumbnailer.generateThumbnailWithImagePath(input, key, shape->stored, 1.0, options) : nullptr;
  std::optional<CGSize> size = shape ? std::optional(shape->stored) : std::nullopt;
  if (image && shape->orientation != 1) {
    key += "-upright";
    image = upright(image, shape->orientation);
    if (image) size = image->size();
  }
  if (!image) {
    fail(input, "cannot read the picture");
    return std::nullopt;
  }
  // A picture already at the size is its own thumbnail, which the thumbnailer keeps in memory only.
  if (!thumbnailer.thumbnailExistsForKey(key, *size, 1.0, options)) thumbnailer.setThumbnail(image, key, options);
  if (!thumbnailer.thumbnailExistsForKey(key, *size, 1.0, options)) {
    fail(input, "cannot write the thumbnail into " + thumbnailer.cacheFolder());
    return std::nullopt;
  }
  return thumbnailer.pathForKey(key, *size, 1.0, options);
}

int run(const ThumbnailSettings& s) {
  BVThumbnailer thumbnailer(s.cache.empty() ? BVThumbnailer::_cachesPath() : s.cache);
  std::error_code error;
  if (!fs::is_directory(thumbnailer.cacheFolder(), error)) {
    fail(thumbnailer.cacheFolder(), "cannot make the cache folder");
    return 1;
  }
  thumbnailer.setMaximumSizeForDiskPersistence(CGSizeMake(s.size, s.size));
  const bool progress = isatty(STDERR_FILENO);
  std::vector<std::optional<std::string>> made(s.inputs.size());
  std::atomic<size_t> done{0};
  BVExecutorParallelFor(s.inputs.size(), unsigned(std::max(s.threads, 0)), [&](size_t i) {
    made[i] = thumbnailOne(thumbnailer, s, s.inputs[i]);
    const size_t finished = ++done;
    if (progress) {
      std::lock_guard lock(outputMutex);
      std::cerr << "\rthumbnails " << finished << '/' << s.inputs.size() << std::flush;
    }
  });
  if (progress) std::cerr << '\n';
  for (const auto& path : made) {
    if (path) std::cout << *path << '\n';
  }
  return std::all_of(made.begin(), made.end(), [](const auto& path) { return path.has_value(); }) ? 0 : 1;
}

}  // namespace

void addThumbnailCommand(CLI::App& app) {
  auto settings = std::make_shared<ThumbnailSettings>();
  auto* cmd =
      app.add_subcommand("thumbnail", "Make thumbnails of pictures in a thumbnail cache folder, printing their paths");
  cmd->add_option("inputs", settings->inputs, "Pictures (JPEG, PNG, HEIF, WebP, TIFF)")->required();
  cmd->add_option("--size", settings->size, "Longer side of the thumbnails in pixels")
      ->required()
      ->check(CLI::Range(1, 16384));
  cmd->add_option("--cache", settings->cache, "Cache folder (default: the user's thumbnail cache)");
  cmd->add_option("--format", settings->format, "File format of the thumbnails")->check(CLI::IsMember({"jpg", "png"}));
  addThreadsOption(*cmd, settings->threads);
  cmd->callback([settings] { setExitStatus(run(*settings)); });
}

}  // namespace brenvia::cli
