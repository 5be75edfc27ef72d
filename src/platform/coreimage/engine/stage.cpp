#include "platform/coreimage/engine/stage.h"

namespace brenvia::ci {

Span& TileState::span(int stage, size_t k) {
  auto& spans = slots[size_t(stage)].spans;
  while (spans.size() <= k) spans.push_back(std::make_unique<Span>());
  return *spans[k];
}

PlanarBuffer& TileState::buffer(int stage, size_t k) {
  auto& buffers = slots[size_t(stage)].buffers;
  if (buffers.size() <= k) buffers.resize(k + 1);
  return buffers[k];
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
  const PixelRect& rect = into.rect;
  Span& s = ts.span(stage.id, 0);
  for (int64_t y = rect.y; y < rect.maxY(); ++y) {
    for (int64_t x = rect.x; x < rect.maxX(); x += kSpan) {
      s.x = x;
      s.y = y;
      s.n = int(std::min<int64_t>(kSpan, rect.maxX() - x));
      stage.row(s, ts);
      into.write(s);
    }
  }
}

void renderStage(const std::vector<std::unique_ptr<Stage>>& stages, const Stage& root, const PixelRect& rect,
                 const PlanarView& into, TileState& ts) {
  computeRois(stages, root, rect, ts, false);
  prepareStages(stages, root, ts);
  fillFromStage(root, into, ts);
}

}  // namespace brenvia::ci
