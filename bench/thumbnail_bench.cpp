// A 256-pixel thumbnail of a 12 MP JPEG through the thumbnailer: the file decoded with DCT scaling,
// reduced by area averaging and drawn, from an empty cache each time; once kept in memory only and
// once also written to disk as a JPEG. bench/thumbnail.sh hands over a photo in BRENVIA_BENCH_JPEG;
// without it a synthetic photo is used.
#include "bench_support.h"

#include "platform/imageio/image_io.h"
#include "thumbnails/thumbnailer.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace brenvia {
namespace {

namespace fs = std::filesystem;

const std::string& photoPath() {
  static const std::string path = [] {
    if (const char* given = std::getenv("BRENVIA_BENCH_JPEG")) return std::string(given);
    std::string made = (fs::temp_directory_path() / "brenvia-thumbnail-bench.jpg").string();
    std::vector<uint8_t> bytes;
    imageio::encodeJPEG(*bench::photoLikeImage(), {.quality = 0.95}, bytes);
    std::ofstream(made, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return made;
  }();
  return path;
}

void BM_Thumbnail256FromJPEG(benchmark::State& state) {
  const bool toDisk = state.range(0);
  const std::string cache = (fs::temp_directory_path() / "brenvia-thumbnail-bench-cache").string();
  BVThumbnailer thumbnailer(cache);
  if (toDisk) thumbnailer.setMaximumSizeForDiskPersistence({256, 256});
  for (auto _ : state) {
    auto thumbnail =
        thumbnailer.generateThumbnailWithImagePath(photoPath(), "photo", {256, 192}, 1.0, kBVThumbnailerOptionJPEG);
    if (!thumbnail) return state.SkipWithError("the photo cannot be read");
    state.PauseTiming();
    thumbnailer.removeAllThumbnails();
    state.ResumeTiming();
  }
  std::error_code ignored;
  fs::remove_all(cache, ignored);
}
BENCHMARK(BM_Thumbnail256FromJPEG)->Arg(0)->Arg(1)->ArgName("disk")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
