// The engine benchmark's point chain done with libvips on the same 12 MP picture, for comparison:
// linear light, exposure, saturation and contrast, a colour matrix, a second matrix in place of
// vibrance (libvips has none), gamma, and a half-transparent colour laid over; back to 8-bit sRGB.
#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <vips/vips8>

namespace {

using vips::VImage;

std::vector<double> saturationMatrix(double s) {
  const double wr = 0.2126, wg = 0.7152, wb = 0.0722;
  return {wr + (1 - wr) * s, wg * (1 - s),       wb * (1 - s),
          wr * (1 - s),       wg + (1 - wg) * s, wb * (1 - s),
          wr * (1 - s),       wg * (1 - s),       wb + (1 - wb) * s};
}

VImage chain(const VImage& in) {
  VImage x = in.colourspace(VIPS_INTERPRETATION_scRGB);
  x = x.linear(std::pow(2.0, 0.3), 0.0);
  x = x.recomb(VImage::new_matrixv(3, 3, 1.2 * 0.79 + 0.21, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0))
          .recomb(VImage::new_from_memory(saturationMatrix(1.2).data(), 9 * sizeof(double), 3, 3, 1,
                                          VIPS_FORMAT_DOUBLE));
  x = x.linear(1.1, 0.5 - 0.5 * 1.1);
  x = x.recomb(VImage::new_matrixv(3, 3, 0.9, 0.1, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0));
  x = x.recomb(VImage::new_from_memory(saturationMatrix(1.1).data(), 9 * sizeof(double), 3, 3, 1,
                                       VIPS_FORMAT_DOUBLE));
  x = x.math2_const(VIPS_OPERATION_MATH2_POW, {0.9});
  x = x.linear({0.5, 0.5, 0.5}, {0.5 * 0.787, 0.5 * 0.319, 0.5 * 0.073});
  x = x.copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_scRGB));
  return x.colourspace(VIPS_INTERPRETATION_sRGB).cast(VIPS_FORMAT_UCHAR);
}

void BM_VipsPointChain(benchmark::State& state) {
  static const auto picture = brenvia::bench::photoLikeImage();
  const size_t w = picture->width(), h = picture->height();
  std::vector<uint8_t> packed(w * h * 3);
  for (size_t y = 0; y < h; ++y) std::memcpy(packed.data() + y * w * 3, picture->row(y), w * 3);
  vips_concurrency_set(int(state.range(0)));
  for (auto _ : state) {
    VImage in = VImage::new_from_memory(packed.data(), packed.size(), int(w), int(h), 3, VIPS_FORMAT_UCHAR);
    size_t size = 0;
    void* out = chain(in).write_to_memory(&size);
    benchmark::DoNotOptimize(out);
    g_free(out);
  }
  state.counters["MP/s"] = benchmark::Counter(double(w * h) * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_VipsPointChain)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  if (VIPS_INIT(argv[0])) return 1;
  vips_cache_set_max(0);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  vips_shutdown();
  return 0;
}
