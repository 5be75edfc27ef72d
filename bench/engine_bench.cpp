// Engine throughput on a 12 MP picture: a fused chain of point operations, the same chain with a
// wide blur, and Gaussian blurs of growing radius. 8-bit in, 8-bit out, in memory.
#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace brenvia {
namespace {

const CIImageRef& photo() {
  static const CIImageRef image = CIImage::imageWithCGImage(bench::photoLikeImage());
  return image;
}

void renderLoop(benchmark::State& state, const CIImageRef& image, int threads) {
  if (!image) {
    state.SkipWithError("an operation of the chain is not registered");
    return;
  }
  CIContextOptions options;
  options.threads = threads;
  auto context = CIContext::contextWithOptions(options);
  CGRect rect = photo()->extent();
  std::vector<uint8_t> out(size_t(rect.size.width * rect.size.height * 4));
  for (auto _ : state) {
    context->render(image, out.data(), size_t(rect.size.width) * 4, rect, kCIFormatRGBA8, CGColorSpaceCreateDeviceRGB());
    benchmark::DoNotOptimize(out.data());
  }
  double pixels = rect.size.width * rect.size.height;
  state.counters["MP/s"] = benchmark::Counter(pixels * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PointChain(benchmark::State& state) { renderLoop(state, bench::pointChain(photo()), int(state.range(0))); }
BENCHMARK(BM_PointChain)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Copy(benchmark::State& state) { renderLoop(state, photo(), int(state.range(0))); }
BENCHMARK(BM_Copy)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PointChainWithBlur(benchmark::State& state) {
  CIImageRef chain = bench::pointChain(photo());
  CIImageRef blurred = chain ? chain->imageByClampingToExtent()
                                   ->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", 30.0}})
                             : nullptr;
  renderLoop(state, blurred ? blurred->imageByCroppingToRect(photo()->extent()) : nullptr, 2);
}
BENCHMARK(BM_PointChainWithBlur)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
