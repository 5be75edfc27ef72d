#include "canvas_options.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <vector>

namespace brenvia::cli {
namespace {

// `count` comma-separated finite numbers, each of an absolute value below `limit`; nothing otherwise.
std::optional<std::vector<double>> numbersIn(const std::string& text, size_t count, double limit) {
  std::vector<double> numbers;
  size_t start = 0;
  while (start <= text.size() && numbers.size() <= count) {
    const size_t comma = std::min(text.find(',', start), text.size());
    const std::string piece = text.substr(start, comma - start);
    char* end = nullptr;
    const double x = std::strtod(piece.c_str(), &end);
    if (piece.empty() || *end != '\0' || !std::isfinite(x) || std::abs(x) >= limit) return std::nullopt;
    numbers.push_back(x);
    start = comma + 1;
  }
  return numbers.size() == count ? std::optional(numbers) : std::nullopt;
}

CLI::Validator numbers(size_t count, double limit, const std::string& what) {
  return CLI::Validator(
      [=](std::string& text) { return numbersIn(text, count, limit) ? std::string() : "expected " + what; }, what);
}

}  // namespace

void addCanvasOptions(CLI::App& command, CanvasOptions& o) {
  command.add_option("--rotate", o.rotate, "Turn the picture clockwise by 90, 180 or 270 degrees")
      ->check(CLI::IsMember({0, 90, 180, 270}));
  command.add_option("--crop", o.crop, "Crop X,Y,W,H in pixels of the turned picture, from its top left")
      ->check(numbers(4, 1e9, "X,Y,W,H"));
  command.add_option("--straighten", o.straighten, "Straighten by DEG degrees (-45 to 45), filling the frame")
      ->check(numbers(1, 45, "degrees between -45 and 45"));
  command.add_option("--keystone", o.keystone, "Keystone correction H,V relative to the size, each -1 to 1")
      ->check(numbers(2, 1, "H,V between -1 and 1"));
  command.add_option("--stretch", o.stretch, "Stretch H,V: relative growth on each side, each -1 to 1")
      ->check(numbers(2, 1, "H,V between -1 and 1"));
}

std::shared_ptr<BVCanvasAdjustment> canvasAdjustmentFor(const CanvasOptions& o, CGSize size, std::string& error) {
  const auto turns = BVImageOrientationAdjustment(o.rotate / 90);
  const CGSize turned = turns % 2 ? CGSizeMake(size.height, size.width) : size;
  BVImageCrop crop = BVImageCropMake(0, 0, turned.width, turned.height, 0);
  if (!o.crop.empty()) {
    const std::vector<double> c = *numbersIn(o.crop, 4, 1e9);  // checked when the options were read
    if (!(c[0] >= 0 && c[1] >= 0 && c[2] >= 1 && c[3] >= 1 && c[0] + c[2] <= turned.width &&
          c[1] + c[3] <= turned.height)) {
      error = "the crop must lie inside the " + std::to_string(int64_t(turned.width)) + "x" +
              std::to_string(int64_t(turned.height)) + " picture";
      return nullptr;
    }
    crop = BVImageCropMake(c[0], c[1], c[2], c[3], 0);
  }
  const auto pair = [](const std::string& text) {
    return text.empty() ? std::vector<double>{0, 0} : *numbersIn(text, 2, 1);
  };
  const std::vector<double> keystone = pair(o.keystone), stretch = pair(o.stretch);
  const BVPlanarAdjustment planar{o.straighten, keystone[0], keystone[1], stretch[0], stretch[1]};
  return BVCanvasAdjustment::adjustmentWithCrop(crop, turns, planar);
}

}  // namespace brenvia::cli
