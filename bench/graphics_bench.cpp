// The drawing road on a 12 MP picture: making the bitmap context of a picture, drawing a picture
// over it through a blend mode, and the tent blur of a four-byte buffer.

#include "bench_support.h"

#include "image/bitmap_context.h"
#include "image/graphics_utilities.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace brenvia::bench {
namespace {

const CGImageRef& photo() {
  static const CGImageRef image = photoLikeImage();
  return image;
}

void BM_BitmapContextOfPicture(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(BVBitmapContext::initWithCGImage(photo()));
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(photo()->width() * photo()->height()));
}
BENCHMARK(BM_BitmapContextOfPicture)->Unit(benchmark::kMillisecond);

void BM_DrawWithBlendMode(benchmark::State& state) {
  auto context = BVBitmapContext::initWithCGImage(photo());
  const CGRect all = CGRectMake(0, 0, double(photo()->width()), double(photo()->height()));
  CGContextSetBlendMode(context->context(), CGBlendMode(state.range(0)));
  for (auto _ : state) CGContextDrawImage(context->context(), all, photo());
  state.SetLabel(std::string(NSStringFromCGBlendMode(CGBlendMode(state.range(0))).value_or("")));
}
BENCHMARK(BM_DrawWithBlendMode)->Arg(kCGBlendModeNormal)->Arg(kCGBlendModeMultiply)->Arg(kCGBlendModeSoftLight)
    ->Arg(kCGBlendModePlusDarker)->Unit(benchmark::kMillisecond);

void BM_TentConvolve(benchmark::State& state) {
  vImage_Buffer source = vImage_BufferCreateWithCGImage(photo());
  vImage_Buffer destination = vImage_BufferCreateDestinationWithSource(source);
  const uint32_t k = uint32_t(state.range(0));
  for (auto _ : state) {
    vImageTentConvolve_ARGB8888(source, destination, nullptr, 0, 0, k, k, nullptr, kvImageEdgeExtend);
  }
  std::free(source.data);
  std::free(destination.data);
}
BENCHMARK(BM_TentConvolve)->Arg(3)->Arg(31)->Arg(301)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brenvia::bench

BENCHMARK_MAIN();
