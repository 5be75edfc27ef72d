#pragma once

#include "platform/coreimage/engine/kernel.h"
#include "platform/graphics/cg_image.h"

#include <limits>
#include <memory>
#include <vector>

namespace brenvia::ci {

struct TileState;

// One node of a render plan. Stages are stored in topological order (inputs first); the plan
// asks each for rows of pixels, and stages that need a neighbourhood fill buffers first.
class Stage {
 public:
  virtual ~Stage() = default;

  int id = 0;
  PixelRect extent;  // pixels outside read as transparent
  std::vector<Stage*> inputs;
  int consumers = 0;  // stages that read this one

  // Fill the span (x, y, n set by the caller). A stage read by several others keeps its last span
  // so that the same pixels are not computed twice.
  void read(Span& s, TileState& ts) const;

  // How many inputs the stage reads; the plan holds every stage to it.
  virtual size_t minInputs() const { return 0; }
  virtual size_t maxInputs() const { return std::numeric_limits<size_t>::max(); }
  // The part of input i that output rectangle r reads.
  virtual PixelRect inputRoi(int i, const PixelRect& r) const { return r; }
  // Whole-image stages are computed before the tiles; their inputs take no part in tile passes.
  virtual bool isWholeImage() const { return false; }
  virtual bool needsPrepare() const { return false; }
  // Fill this stage's buffers for its region of interest in ts.
  virtual void prepare(TileState& ts) const {}
  // Compute the span; callers go through read().
  virtual void row(Span& s, TileState& ts) const = 0;
};

// Scratch memory of one stage for the tile in progress.
struct StageSlot {
  PixelRect roi;
  std::vector<PlanarBuffer> buffers;
  std::vector<std::unique_ptr<Span>> spans;
  std::unique_ptr<Span> last;  // the last span of a stage with several consumers
};

// Everything one thread needs to render tiles of a plan; reused from tile to tile. Its buffers
// come from a process-wide pool and go back to it afterwards, so later renders find memory that
// is already mapped.
struct TileState {
  TileState(const RenderEnv* env, size_t stages);
  ~TileState();
  TileState(TileState&&) = default;
  TileState& operator=(TileState&&) = default;

  const RenderEnv* env = nullptr;
  std::vector<StageSlot> slots;

  Span& span(int stage, size_t k);
  PlanarBuffer& buffer(int stage, size_t k);
};

// Calls fn(s) for each span of at most kSpan pixels covering rect, row by row, with s.x, s.y, s.n set.
template <class F>
void forEachSpan(const PixelRect& rect, Span& s, F&& fn) {
  for (int64_t y = rect.y; y < rect.maxY(); ++y) {
    for (int64_t x = rect.x; x < rect.maxX(); x += kSpan) {
      s.x = x;
      s.y = y;
      s.n = int(std::min<int64_t>(kSpan, rect.maxX() - x));
      fn(s);
    }
  }
}

// Fills `into` with rows of an already prepared stage. Uses the stage's span 0; a stage's own
// temporaries use spans 1 and up.
void fillFromStage(const Stage& stage, const PlanarView& into, TileState& ts);
// Renders `rect` of `root` into `into` (which covers rect) using ts for scratch.
void renderStage(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, const PixelRect& rect,
                 const PlanarView& into, TileState& ts);
// Marks the region of interest of every stage that `root` over `rect` reads.
void computeRois(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, const PixelRect& rect,
                 TileState& ts, bool throughWholeImage);
// Prepares the stages up to root that have a region of interest.
void prepareStages(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, TileState& ts);

// Stage factories (one file each).
std::unique_ptr<Stage> makeSourceStage(const CGImageRef& bitmap, const RenderEnv& env);
std::unique_ptr<Stage> makeColorStage(const std::array<float, 4>& pixel);
std::unique_ptr<Stage> makeEmptyStage();
std::unique_ptr<Stage> makePointStage(std::shared_ptr<const PointKernel> kernel, const RenderEnv& env);
std::unique_ptr<Stage> makeWarpStage(std::shared_ptr<const WarpKernel> kernel);
std::unique_ptr<Stage> makeTransformStage(const CGAffineTransform& t);
std::unique_ptr<Stage> makeCropStage(const CGRect& rect);
std::unique_ptr<Stage> makeClampStage(const CGRect& extent);
std::unique_ptr<Stage> makeRegionStage(std::shared_ptr<const RegionKernel> kernel, const RenderEnv& env);
std::unique_ptr<Stage> makeWholeImageStage(std::shared_ptr<const WholeImageKernel> kernel);
// Gives the whole-image stage its computed rows.
void setWholeImageResult(Stage& stage, std::shared_ptr<const RowSource> rows);
const WholeImageKernel& wholeImageKernel(const Stage& stage);

}  // namespace brenvia::ci
