// Each tone and colour filter run by the image processor on a 12 MP picture, 8-bit in and out, in
// memory: what one step of a look costs on the whole road (chain building, render, read-back).
#include "bench_support.h"

#include "filter/filter.h"
#include "image/image.h"
#include "processor/image_processor.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

namespace brenvia {
namespace {

const std::shared_ptr<BVImage>& photo() {
  static const std::shared_ptr<BVImage> image = BVImage::initWithCGImage(bench::photoLikeImage());
  return image;
}

void processLoop(benchmark::State& state, const Value& recipe) {
  auto processor = BVImageProcessor::initWithFilters(BVFilter::filtersWithArray(recipe));
  for (auto _ : state) {
    auto out = processor->process(photo());
    benchmark::DoNotOptimize(out->CGImage());
  }
  const double pixels = double(photo()->CGImage()->width() * photo()->CGImage()->height());
  state.counters["MP/s"] = benchmark::Counter(pixels * 1e-6, benchmark::Counter::kIsIterationInvariantRate);
}

const std::vector<std::pair<const char*, Value>>& recipes() {
  static const std::vector<std::pair<const char*, Value>> all = {
      {"none", Value::array()},
      {"color", Value::array({{{"type", "color"}, {"colorHex", "#f2c48d"}, {"alpha", 0.35}}})},
      {"colorSoftLight",
       Value::array({{{"type", "color"}, {"colorHex", "#f2c48d"}, {"mode", "SoftLight"}, {"alpha", 0.35}}})},
      {"levels", Value::array({{{"type", "levels"}, {"inputBlack", 10}, {"outputWhite", 240}}})},
      {"fade", Value::array({{{"type", "fade"}, {"intensity", 0.3}}})},
      {"selectiveColor", Value::array({{{"type", "selectiveColor"}, {"orangeAdjustment", 1.5}}})},
      {"sharpen", Value::array({{{"type", "sharpen"}, {"sharpness", 0.4}}})},
      {"unsharp", Value::array({{{"type", "unsharp"}, {"radius", 3}, {"intensity", 0.7}}})},
      {"vignette", Value::array({{{"type", "vignette"}, {"intensity", 0.9}, {"focus", 0.4}}})},
  };
  return all;
}

const bool registered = [] {
  for (const auto& [name, recipe] : recipes()) {
    benchmark::RegisterBenchmark((std::string("BM_Filter/") + name).c_str(),
                                 [&recipe = recipe](benchmark::State& state) { processLoop(state, recipe); })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  return true;
}();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
