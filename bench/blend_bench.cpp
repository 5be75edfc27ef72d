// The blend stage on a 12 MP picture: what a half-transparent overlay in a separable blend mode
// adds to the render of the picture alone and of a point chain, and the chroma-key cube's
// construction. 8-bit in, 8-bit out, in memory, 2 threads.
#include "bench_support.h"

#include "filter/blend_filter.h"
#include "operators/chroma_key_filter.h"
#include "processor/filter_chain.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace brenvia {
namespace {

const CIImageRef& photo() {
  static const CIImageRef image = CIImage::imageWithCGImage(bench::photoLikeImage());
  return image;
}

// A flat colour laid over the picture through the blend stage, as colour layers do.
class ColorOverlay final : public BVBlendFilter {
 public:
  CIFilterArray CIFiltersForSize(CGSize size) override {
    CIFilterArray operations = BVBlendFilter::CIFiltersForSize(size);
    CIImageRef overlay = CIImage::imageWithColor(CIColor(0.9, 0.6, 0.3))->imageByCroppingToRect(photo()->extent());
    operations.front()->setValue(overlayImageWithAlpha(overlay), kCIInputImageKey);
    return CIFiltersWithMaskIfNeeded(operations, operations.front(), size);
  }
};

CIImageRef withOverlay(const CIImageRef& picture, const char* mode) {
  auto overlay = std::make_shared<ColorOverlay>();
  overlay->initWithParameters({{"mode", mode}, {"alpha", 0.5}});
  return CIImageWithBVFilters(picture, {overlay}, photo()->extent().size);
}

void renderLoop(benchmark::State& state, const CIImageRef& image) {
  CIContextOptions options;
  options.threads = 2;
  auto context = CIContext::contextWithOptions(options);
  const CGRect rect = photo()->extent();
  std::vector<uint8_t> out(size_t(rect.size.width * rect.size.height * 4));
  for (auto _ : state) {
    context->render(image, out.data(), size_t(rect.size.width) * 4, rect, kCIFormatRGBA8, CGColorSpaceCreateDeviceRGB());
    benchmark::DoNotOptimize(out.data());
  }
}

const char* const kModes[] = {"Normal", "Multiply", "Screen", "Overlay", "SoftLight", "LinearLight"};

void BM_Picture(benchmark::State& state) { renderLoop(state, photo()); }
BENCHMARK(BM_Picture)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PictureWithOverlay(benchmark::State& state) {
  state.SetLabel(kModes[state.range(0)]);
  renderLoop(state, withOverlay(photo(), kModes[state.range(0)]));
}
BENCHMARK(BM_PictureWithOverlay)->DenseRange(0, 5)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PointChain(benchmark::State& state) { renderLoop(state, bench::pointChain(photo())); }
BENCHMARK(BM_PointChain)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PointChainWithOverlay(benchmark::State& state) {
  state.SetLabel(kModes[state.range(0)]);
  renderLoop(state, withOverlay(bench::pointChain(photo()), kModes[state.range(0)]));
}
BENCHMARK(BM_PointChainWithOverlay)->DenseRange(0, 5)->Unit(benchmark::kMillisecond)->UseRealTime();

// Each iteration keys a new threshold, so every cube is built afresh.
void BM_ChromaKeyCube(benchmark::State& state) {
  double threshold = 0.1;
  for (auto _ : state) {
    threshold += 0.001;
    benchmark::DoNotOptimize(BVChromaKeyColorCube(CIColor(0.1, 0.8, 0.2), threshold));
  }
}
BENCHMARK(BM_ChromaKeyCube)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
