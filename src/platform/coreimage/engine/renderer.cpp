#include "platform/coreimage/engine/renderer.h"

#include "platform/coreimage/engine/output_writer.h"
#include "platform/coreimage/engine/stage.h"
#include "platform/coreimage/engine/vector_clones.h"
#include "platform/foundation/check.h"
#include "platform/foundation/log.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <unordered_map>

namespace brenvia::ci {
namespace {

using Matrix = std::array<float, 12>;

BV_FUSED_VECTOR_CLONES void matrixSpan(float* r, float* g, float* b, const float* a, int n, const float* m) {
  for (int i = 0; i < n; ++i) {
    float x = r[i], y = g[i], z = b[i], w = a[i];
    r[i] = m[0] * x + m[1] * y + m[2] * z + m[3] * w;
    g[i] = m[4] * x + m[5] * y + m[6] * z + m[7] * w;
    b[i] = m[8] * x + m[9] * y + m[10] * z + m[11] * w;
  }
}

// Several affine colour maps folded into one: rows r, g, b over columns r, g, b, a.
class FoldedMatrixKernel final : public PointKernel {
 public:
  explicit FoldedMatrixKernel(const Matrix& m) : m_(m) {}
  std::string_view name() const override { return "folded matrix"; }
  void apply(Span& s, std::span<const Span* const>, const RenderEnv&) const override {
    matrixSpan(s.r, s.g, s.b, s.a, s.n, m_.data());
  }
  std::optional<Matrix> premultipliedMatrix() const override { return m_; }

 private:
  Matrix m_;
};

// outer after inner.
Matrix compose(const Matrix& outer, const Matrix& inner) {
  Matrix r{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 4; ++j) {
      float v = j == 3 ? outer[size_t(i * 4 + 3)] : 0.0f;
      for (int k = 0; k < 3; ++k) v += outer[size_t(i * 4 + k)] * inner[size_t(k * 4 + j)];
      r[size_t(i * 4 + j)] = v;
    }
  }
  return r;
}

// The kernel of an operation node, which must be of kind K.
template <class K>
const std::shared_ptr<const K>& kernelOf(const CIImage& image) {
  const auto* kernel = std::get_if<std::shared_ptr<const K>>(&image.kernel());
  BV_CHECK_MSG(kernel && *kernel, "an operation node holds no kernel of its kind");
  return *kernel;
}

std::optional<Matrix> matrixOf(const CIImage& image) {
  if (image.kind() != CIImage::Kind::Point || image.inputs().size() != 1) return std::nullopt;
  return kernelOf<PointKernel>(image)->premultipliedMatrix();
}

// Stages read their inputs row by row through nested calls, so the depth of the graph is bounded to
// what a worker's stack holds with room to spare; deeper graphs come only from hostile recipes.
constexpr size_t kMaximumGraphDepth = 4096;

// The number of images on the longest path from the image to a source, found without recursion.
size_t graphDepth(const CIImage& root) {
  std::unordered_map<const CIImage*, size_t> depths;
  std::vector<std::pair<const CIImage*, bool>> pending{{&root, false}};
  while (!pending.empty()) {
    auto [image, inputsDone] = pending.back();
    pending.pop_back();
    if (depths.count(image)) continue;
    if (!inputsDone) {
      pending.emplace_back(image, true);
      for (const auto& input : image->inputs()) {
        if (!depths.count(input.get())) pending.emplace_back(input.get(), false);
      }
      continue;
    }
    size_t deepest = 0;
    for (const auto& input : image->inputs()) deepest = std::max(deepest, depths[input.get()]);
    depths[image] = deepest + 1;
  }
  return depths[&root];
}

// The render plan: the image graph turned into stages, inputs first. A graph deeper than the
// bound gives no plan (no root), with a log line.
class Plan {
 public:
  Plan(const CIImageRef& image, const RenderEnv& env) : env_(env) {
    if (const size_t depth = graphDepth(*image); depth > kMaximumGraphDepth) {
      BVLog("[CIContext] The image is " + std::to_string(depth) + " operations deep, more than the " +
            std::to_string(kMaximumGraphDepth) + " a render takes; nothing is rendered.");
      return;
    }
    root = build(*image);
  }

  std::vector<std::unique_ptr<Stage>> stages;
  Stage* root = nullptr;
  std::vector<CGImageRef> bitmaps;

  // False when a source bitmap's decoder failed after the render began reading it.
  bool sourcesComplete() const {
    return std::all_of(bitmaps.begin(), bitmaps.end(), [](const CGImageRef& b) { return b->complete(); });
  }

  TileState newTileState() const { return TileState(&env_, stages.size()); }

 private:
  Stage* build(const CIImage& image) {
    if (auto it = memo_.find(&image); it != memo_.end()) return it->second;
    if (Stage* folded = foldedFlatColour(image)) return memo_[&image] = folded;
    std::unique_ptr<Stage> stage;
    std::vector<const CIImage*> inputs;
    for (const auto& input : image.inputs()) inputs.push_back(input.get());
    switch (image.kind()) {
      case CIImage::Kind::Empty: stage = makeEmptyStage(); break;
      case CIImage::Kind::Color: stage = makeColorStage(env_.pixel(image.color())); break;
      case CIImage::Kind::Bitmap:
        stage = makeSourceStage(image.bitmap(), env_);
        bitmaps.push_back(image.bitmap());
        break;
      case CIImage::Kind::Point: stage = pointStage(image, inputs); break;
      case CIImage::Kind::Warp: stage = makeWarpStage(kernelOf<WarpKernel>(image)); break;
      case CIImage::Kind::Region: stage = makeRegionStage(kernelOf<RegionKernel>(image), env_); break;
      case CIImage::Kind::WholeImage: stage = makeWholeImageStage(kernelOf<WholeImageKernel>(image)); break;
      case CIImage::Kind::Transform: stage = makeTransformStage(image.transform()); break;
      case CIImage::Kind::Crop: stage = makeCropStage(image.rect()); break;
      case CIImage::Kind::Clamp: stage = makeClampStage(image.rect()); break;
    }
    for (const CIImage* input : inputs) {
      Stage* built = build(*input);
      ++built->consumers;
      stage->inputs.push_back(built);
    }
    return memo_[&image] = add(std::move(stage), image.extent());
  }

  // Stages go in inputs first: tiles work out what each stage reads by walking the list backwards.
  Stage* add(std::unique_ptr<Stage> stage, const CGRect& extent) {
    BV_CHECK_MSG(stage->inputs.size() <= stage->maxInputs(), "an operation has more inputs than its stage holds");
    BV_CHECK_MSG(stage->inputs.size() >= stage->minInputs(), "an operation has fewer inputs than its stage reads");
    for (const Stage* input : stage->inputs)
      BV_CHECK(input->id < int(stages.size()) && stages[size_t(input->id)].get() == input);
    stage->extent = PixelRect::covering(extent);
    stage->id = int(stages.size());
    stages.push_back(std::move(stage));
    return stages.back().get();
  }

  // A per-pixel kernel over a flat colour, cropped or not, is the flat colour it makes, cropped
  // alike: inside the extent every pixel is that colour, and outside it nothing is drawn. An
  // overlay colour faded by an opacity step so costs nothing per pixel.
  Stage* foldedFlatColour(const CIImage& image) {
    if (image.kind() != CIImage::Kind::Point || image.inputs().size() != 1) return nullptr;
    const auto& kernel = kernelOf<PointKernel>(image);
    if (!kernel->isPerPixel()) return nullptr;
    const CIImage* input = image.inputs()[0].get();
    const CIImage* crop = input->kind() == CIImage::Kind::Crop ? input : nullptr;
    const CIImage* colour = crop ? crop->inputs()[0].get() : input;
    if (colour->kind() != CIImage::Kind::Color) return nullptr;
    auto evaluate = [&](const std::array<float, 4>& p) {
      Span s;
      s.n = 1;
      s.r[0] = p[0], s.g[0] = p[1], s.b[0] = p[2], s.a[0] = p[3];
      kernel->apply(s, {}, env_);
      return std::array<float, 4>{s.r[0], s.g[0], s.b[0], s.a[0]};
    };
    Stage* flat = add(makeColorStage(evaluate(env_.pixel(colour->color()))), colour->extent());
    if (!crop) return flat;
    auto cropStage = makeCropStage(crop->rect());
    cropStage->inputs.push_back(flat);
    ++flat->consumers;
    return add(std::move(cropStage), image.extent());
  }

  // Runs of affine colour maps fold into one matrix stage.
  std::unique_ptr<Stage> pointStage(const CIImage& image, std::vector<const CIImage*>& inputs) {
    const auto& kernel = kernelOf<PointKernel>(image);
    std::optional<Matrix> m = matrixOf(image);
    if (!m || !matrixOf(*inputs[0])) return makePointStage(kernel, env_);
    const CIImage* source = inputs[0];
    while (auto inner = matrixOf(*source)) {
      *m = compose(*m, *inner);
      source = source->inputs()[0].get();
    }
    inputs = {source};
    return makePointStage(std::make_shared<FoldedMatrixKernel>(*m), env_);
  }

  RenderEnv env_;
  std::unordered_map<const CIImage*, Stage*> memo_;
};

// Computes the whole-image stages the render reads, inputs first, each over all it is asked for.
void computeWholeImageStages(Plan& plan, const PixelRect& rect, const RenderEnv& env) {
  TileState rois = plan.newTileState();
  computeRois(plan.stages, *plan.root, rect, rois, true);
  for (auto& stage : plan.stages) {
    const PixelRect roi = rois.slots[size_t(stage->id)].roi;
    if (!stage->isWholeImage() || roi.empty()) continue;
    BandRenderer band = [&plan, &stage](int input, const PixelRect& r, const PlanarView& into) {
      BV_CHECK_MSG(input >= 0 && size_t(input) < stage->inputs.size(),
                   "a whole-image kernel asks for an input it does not have");
      TileState ts = plan.newTileState();
      renderStage(plan.stages, *stage->inputs[size_t(input)], r, into, ts);
    };
    setWholeImageResult(*stage, wholeImageKernel(*stage).compute(band, roi, env));
  }
}

// Renders tile t of the plan into rows whose first one is output row `top` of the rendered rect.
void renderTile(Plan& plan, TileState& ts, const PixelRect& t, const PixelRect& rect, const OutputWriter& writer,
                uint8_t* rows, size_t rowBytes, int64_t top, size_t pixelBytes) {
  computeRois(plan.stages, *plan.root, t, ts, false);
  prepareStages(plan.stages, *plan.root, ts);
  forEachSpan(t, ts.span(plan.root->id, 0), [&](Span& s) {
    plan.root->read(s, ts);
    uint8_t* line = rows + size_t(rect.maxY() - 1 - s.y - top) * rowBytes;
    writer.write(s, line + size_t(s.x - rect.x) * pixelBytes);
  });
}

}  // namespace

bool render(const CIImageRef& image, const PixelRect& rect, const RenderTarget& target, const RenderEnv& env,
            const RenderSchedule& schedule) {
  if (!image || !target.data) return false;
  if (rect.empty()) return true;
  Plan plan(image, env);
  if (!plan.root) return false;
  const int tile = std::max(16, schedule.tileSize);
  const int64_t tilesX = (rect.w + tile - 1) / tile, tilesY = (rect.h + tile - 1) / tile;
  const OutputWriter writer(target, env);
  const size_t pixelBytes = bytesPerPixel(target.format);

  tbb::task_arena arena(schedule.threads > 0 ? schedule.threads : tbb::task_arena::automatic);
  arena.execute([&] {
    computeWholeImageStages(plan, rect, env);
    tbb::enumerable_thread_specific<TileState> states([&] { return plan.newTileState(); });
    tbb::parallel_for(int64_t(0), tilesX * tilesY, [&](int64_t index) {
      int64_t tx = index % tilesX, ty = index / tilesX;
      PixelRect t = PixelRect{rect.x + tx * tile, rect.y + ty * tile, tile, tile}.intersect(rect);
      renderTile(plan, states.local(), t, rect, writer, target.data, target.rowBytes, 0, pixelBytes);
    });
  });
  return plan.sourcesComplete();
}

bool renderBands(const CIImageRef& image, const PixelRect& rect, OutputFormat format, const CGColorSpaceRef& colorSpace,
                 const RenderEnv& env, const RenderSchedule& schedule, int64_t bandRows, const BandConsumer& consume) {
  if (!image || bandRows <= 0) return false;
  if (rect.empty()) return true;
  Plan plan(image, env);
  if (!plan.root) return false;
  const int tile = std::max(16, schedule.tileSize);
  const size_t pixelBytes = bytesPerPixel(format);
  const size_t rowBytes = (size_t(rect.w) * pixelBytes + 63) & ~size_t{63};
  const int64_t bands = (rect.h + bandRows - 1) / bandRows;
  std::atomic<int64_t> next{0};
  std::atomic<bool> consumed{true};

  tbb::task_arena arena(schedule.threads > 0 ? schedule.threads : tbb::task_arena::automatic);
  arena.execute([&] {
    computeWholeImageStages(plan, rect, env);
    // Each worker claims bands in order, so bands follow the rows of a source still being decoded.
    tbb::parallel_for(0, arena.max_concurrency(), [&](int) {
      TileState ts = plan.newTileState();
      std::vector<uint8_t> rows(rowBytes * size_t(bandRows));
      RenderTarget target{rows.data(), rowBytes, format, colorSpace};
      const OutputWriter writer(target, env);
      for (int64_t k; consumed && (k = next++) < bands;) {
        const int64_t top = k * bandRows, height = std::min(bandRows, rect.h - top);
        const int64_t y = rect.maxY() - top - height;
        for (int64_t x = rect.x; x < rect.maxX(); x += tile) {
          PixelRect t = PixelRect{x, y, tile, height}.intersect(rect);
          renderTile(plan, ts, t, rect, writer, rows.data(), rowBytes, top, pixelBytes);
        }
        if (!consume(size_t(k), rows.data(), rowBytes, size_t(height))) consumed = false;
      }
    });
  });
  return consumed && plan.sourcesComplete();
}

}  // namespace brenvia::ci
