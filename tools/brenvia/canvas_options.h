#pragma once

#include "image/canvas_adjustment.h"

#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace brenvia::cli {

// The geometry options of a render, as given: quarter turns, crop, straightening, keystone and stretch,
// applied to the upright picture before the filters.
struct CanvasOptions {
  int rotate = 0;         // 0, 90, 180 or 270 degrees clockwise
  std::string crop;       // "X,Y,W,H" in pixels of the turned picture, from its top left
  double straighten = 0;  // degrees, counter-clockwise
  std::string keystone;   // "H,V" relative keystone corrections
  std::string stretch;    // "H,V" relative stretches on each side

  bool any() const { return rotate != 0 || !crop.empty() || straighten != 0 || !keystone.empty() || !stretch.empty(); }
};

void addCanvasOptions(CLI::App& command, CanvasOptions& options);

// The canvas adjustment for an upright picture of `size`; null, with `error` set, when the options do
// not fit the picture (a crop outside it). Without a crop, a correction keeps the whole picture's size.
std::shared_ptr<BVCanvasAdjustment> canvasAdjustmentFor(const CanvasOptions& options, CGSize size, std::string& error);

}  // namespace brenvia::cli
