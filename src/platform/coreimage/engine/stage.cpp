#include "platform/coreimage/engine/stage.h"

#include <cstring>
#include <mutex>

namespace brenvia::ci {
namespace {

// Spare scratch memory kept between renders, up to a limit.
class ScratchPool {
 public:
  static ScratchPool& shared() {
    static ScratchPool pool;
    return pool;
  }
  PlanarBuffer takeBuffer() {
    std::lock_guard lock(mutex_);
    if (buffers_.empty()) return {};
    PlanarBuffer b = std::move(buffers_.back());
    buffers_.pop_back();
    bytes_ -= b.capacity() * sizeof(float);
    return b;
  }
  std::unique_ptr<Span> takeSpan() {
    std::lock_guard lock(mutex_);
    if (spans_.empty()) return std::make_unique<Span>();
    auto s = std::move(spans_.back());
    spans_.pop_back();
    return s;
  }
  void give(StageSlot& slot) {
    std::lock_guard lock(mutex_);
    for (auto& b : slot.buffers) {
      if (b.capacity() == 0 || bytes_ + b.capacity() * sizeof(float) > kMaxBytes) continue;
      bytes_ += b.capacity() * sizeof(float);
      buffers_.push_back(std::move(b));
    }
    for (auto& s : slot.spans) {
      if (spans_.size() < kMaxSpans) spans_.push_back(std::move(s));
    }
  }

 private:
  static constexpr size_t kMaxBytes = size_t{128} << 20;
  static constexpr size_t kMaxSpans = 256;
  std::mutex mutex_;
  std::vector<PlanarBuffer> buffers_;
  std::vector<std::unique_ptr<Span>> spans_;
  size_t bytes_ = 0;
};

}  // namespace

TileState::TileState(const RenderEnv* e, size_t stages) : env(e), slots(stages) {}

TileState::~TileState() {
  for (auto& slot : slots) ScratchPool::shared().give(slot);
}

Span& TileState::span(int stage, size_t k) {
  auto& spans = slots[size_t(stage)].spans;
  while (spans.size() <= k) spans.push_back(ScratchPool::shared().takeSpan());
  return *spans[k];
}

PlanarBuffer& TileState::buffer(int stage, size_t k) {
  auto& buffers = slots[size_t(stage)].buffers;
  while (buffers.size() <= k) buffers.push_back(ScratchPool::shared().takeBuffer());
  return buffers[k];
}

void Stage::read(Span& s, TileState& ts) const {
  if (consumers < 2 || needsPrepare() || isWholeImage()) return row(s, ts);
  std::unique_ptr<Span>& last = ts.slots[size_t(id)].last;
  if (last && last->x == s.x && last->y == s.y && last->n == s.n) {
    size_t bytes = size_t(s.n) * sizeof(float);
    std::memcpy(s.r, last->r, bytes);
    std::memcpy(s.g, last->g, bytes);
    std::memcpy(s.b, last->b, bytes);
    std::memcpy(s.a, last->a, bytes);
    return;
  }
  row(s, ts);
  if (!last) last = std::make_unique<Span>();
  *last = s;
}

void computeRois(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, const PixelRect& rect,
                 TileState& ts, bool throughWholeImage) {
  for (int i = 0; i <= root.id; ++i) ts.slots[size_t(i)].roi = {};
  ts.slots[size_t(root.id)].roi = rect.intersect(root.extent);
  for (int i = root.id; i >= 0; --i) {
    const Stage& stage = *stages[size_t(i)];
    const PixelRect roi = ts.slots[size_t(i)].roi;
    if (roi.empty() || (stage.isWholeImage() && !throughWholeImage)) continue;
    for (size_t k = 0; k < stage.inputs.size(); ++k) {
      const Stage& input = *stage.inputs[k];
      PixelRect& inputRoi = ts.slots[size_t(input.id)].roi;
      inputRoi = inputRoi.unite(stage.inputRoi(int(k), roi).intersect(input.extent));
    }
  }
}

void prepareStages(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, TileState& ts) {
  for (int i = 0; i <= root.id; ++i) {
    const Stage& stage = *stages[size_t(i)];
    if (stage.needsPrepare() && !ts.slots[size_t(i)].roi.empty()) stage.prepare(ts);
  }
}

void fillFromStage(const Stage& stage, const PlanarView& into, TileState& ts) {
  forEachSpan(into.rect, ts.span(stage.id, 0), [&](Span& s) {
    stage.read(s, ts);
    into.write(s);
  });
}

void renderStage(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, const PixelRect& rect,
                 const PlanarView& into, TileState& ts) {
  computeRois(stages, root, rect, ts, false);
  prepareStages(stages, root, ts);
  fillFromStage(root, into, ts);
}

}  // namespace brenvia::ci
