// Colour cubes on a 12 MP picture: trilinear against tetrahedral lookup, in time and in result;
// and the making of a cube from four curves.
// The cube is a 32^3 grade as grading tools export it: a strong S-shaped ACV curve set followed by
// a saturation boost. (Cubes made from curves alone are separable, and there both lookups agree.)

#include "bench_support.h"
#include "curves/acv_object.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>

namespace brenvia::bench {
namespace {

BVData acvBytes() {
  auto bytes = std::make_shared<std::vector<uint8_t>>();
  auto put = [&](int v) { bytes->insert(bytes->end(), {uint8_t(v >> 8), uint8_t(v)}); };
  const std::vector<std::vector<int>> curves = {
      {0, 0, 70, 50, 190, 210, 255, 255}, {0, 10, 128, 140, 255, 240}, {0, 0, 255, 255}, {0, 30, 128, 110, 255, 230}};
  put(4);
  put(4);
  for (const auto& points : curves) {
    put(int(points.size() / 2));
    for (size_t i = 0; i < points.size(); i += 2) put(points[i + 1]), put(points[i]);  // y, then x
  }
  return bytes;
}

BVData gradedCube() {
  BVData fromCurves = CACVObject::initWithData(acvBytes())->threeDimensionalLUT(32, 1);
  auto cube = std::make_shared<std::vector<uint8_t>>(*fromCurves);
  float* cell = reinterpret_cast<float*>(cube->data());
  for (size_t i = 0; i < cube->size() / 16; ++i, cell += 4) {
    float luma = 0.2126f * cell[0] + 0.7152f * cell[1] + 0.0722f * cell[2];
    for (int c = 0; c < 3; ++c) cell[c] = std::clamp(luma + 1.4f * (cell[c] - luma), 0.0f, 1.0f);
  }
  return cube;
}

CIImageRef cubed() {
  static const CIImageRef image = CIImage::imageWithCGImage(photoLikeImage())->imageByApplyingFilter(
      "CIColorCubeWithColorSpace", {{"inputCubeDimension", 32},
                                    {"inputCubeData", CIData(gradedCube())},
                                    {"inputColorSpace", CGColorSpaceCreateWithName(kCGColorSpaceSRGB)}});
  return image;
}

CGImageRef render(bool tetrahedral) {
  CIContextOptions options;
  options.threads = 2;
  options.tetrahedralColorCubes = tetrahedral;
  return CIContext::contextWithOptions(options)->createCGImage(cubed(), cubed()->extent());
}

void BM_ColorCube(benchmark::State& state) {
  const bool tetrahedral = state.range(0) != 0;
  for (auto _ : state) benchmark::DoNotOptimize(render(tetrahedral));
  state.SetLabel(tetrahedral ? "tetrahedral" : "trilinear");
  // How far the two lookups land apart on this picture, in 8-bit steps.
  if (tetrahedral) {
    CGImageRef a = render(false), b = render(true);
    int worst = 0;
    double sum = 0;
    for (size_t y = 0; y < a->height(); ++y)
      for (size_t i = 0; i < a->width() * 4; ++i) {
        int d = std::abs(int(a->row(y)[i]) - int(b->row(y)[i]));
        worst = std::max(worst, d);
        sum += d;
      }
    state.counters["max_diff_8bit"] = worst;
    state.counters["mean_diff_8bit"] = sum / double(a->width() * a->height() * 3);
  }
}
BENCHMARK(BM_ColorCube)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// The cube in a render that works in the picture's own space, as the command-line tool renders
// photos: no conversion around the lookup, one 8-bit output buffer reused.
void BM_ColorCubeInPictureSpace(benchmark::State& state) {
  CIContextOptions options;
  options.threads = 2;
  options.workingColorSpace = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
  auto context = CIContext::contextWithOptions(options);
  const CGRect rect = cubed()->extent();
  std::vector<uint8_t> out(size_t(rect.size.width * rect.size.height * 4));
  for (auto _ : state) {
    context->render(cubed(), out.data(), size_t(rect.size.width) * 4, rect, kCIFormatRGBA8, *options.workingColorSpace);
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["MP/s"] = benchmark::Counter(rect.size.width * rect.size.height * 1e-6,
                                              benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ColorCubeInPictureSpace)->Unit(benchmark::kMillisecond)->UseRealTime();

// A 32^3 cube from four curves, the spline and byte-table work of a fresh curve set included.
void BM_CubeFromFourCurves(benchmark::State& state) {
  const BVData file = acvBytes();
  for (auto _ : state) benchmark::DoNotOptimize(CACVObject::initWithData(file)->threeDimensionalLUT(32, 0.8f));
}
BENCHMARK(BM_CubeFromFourCurves)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brenvia::bench

BENCHMARK_MAIN();
