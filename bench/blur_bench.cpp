// Gaussian blur cost against sigma on a 12 MP picture, 8-bit sRGB in, RGBA8 out, two threads.
// Above a small sigma the cost should stay flat: compare the sigma 100 time with the sigma 3 one.
#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace brenvia {
namespace {

void BM_GaussianBlur(benchmark::State& state) {
  static const CIImageRef photo = CIImage::imageWithCGImage(bench::photoLikeImage());
  CIImageRef blurred = photo->imageByApplyingFilter("CIGaussianBlur", {{"inputRadius", double(state.range(0))}});
  if (!blurred) {
    state.SkipWithError("CIGaussianBlur is not registered");
    return;
  }
  CIContextOptions options;
  options.threads = 2;
  auto context = CIContext::contextWithOptions(options);
  const CGRect rect = photo->extent();
  std::vector<uint8_t> out(size_t(rect.size.width * rect.size.height * 4));
  for (auto _ : state) {
    context->render(blurred, out.data(), size_t(rect.size.width) * 4, rect, kCIFormatRGBA8,
                    CGColorSpaceCreateDeviceRGB());
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["MP/s"] =
      benchmark::Counter(rect.size.width * rect.size.height * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_GaussianBlur)->ArgName("sigma")->Arg(3)->Arg(30)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
