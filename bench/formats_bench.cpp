// The two file-format costs bench/formats.sh compares with the reference tools: writing a 12 MP
// photo as JPEG at quality 100 (against cjpeg) and decoding a 12 MP HEIF (against heif-convert).
// The script hands over its pictures in BRENVIA_BENCH_PPM and BRENVIA_BENCH_HEIC; without them a
// synthetic photo is used.
#include "bench_support.h"

#include "platform/imageio/codec_internal.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace brenvia {
namespace {

// The next number of a PPM header, past white space and "#" comment lines.
size_t headerNumber(std::istream& in) {
  while (in >> std::ws && in.peek() == '#') in.ignore(1 << 20, '\n');
  size_t value = 0;
  in >> value;
  return value;
}

// A binary 8-bit PPM (P6) as an RGB8 bitmap; null when the file is not one.
CGImageRef readPPM(const char* path) {
  std::ifstream in(path, std::ios::binary);
  std::string magic;
  in >> magic;
  size_t w = headerNumber(in), h = headerNumber(in), max = headerNumber(in);
  in.get();
  if (magic != "P6" || max != 255 || !in) return nullptr;
  auto image = CGImage::allocate(w, h, CGPixelFormat::RGB8, CGColorSpaceCreateDeviceRGB());
  for (size_t y = 0; image && y < h; ++y) in.read(reinterpret_cast<char*>(image->mutableRow(y)), std::streamsize(w * 3));
  return in ? image : nullptr;
}

CGImageRef photo() {
  static const CGImageRef image = [] {
    const char* path = std::getenv("BRENVIA_BENCH_PPM");
    return path ? readPPM(path) : bench::photoLikeImage();
  }();
  return image;
}

void BM_EncodeJPEGQuality100(benchmark::State& state) {
  CGImageRef image = photo();
  if (!image) return state.SkipWithError("BRENVIA_BENCH_PPM is not an 8-bit binary PPM");
  std::vector<uint8_t> out;
  for (auto _ : state) {
    imageio::detail::encodeJPEGWithThreads(*image, {}, unsigned(state.range(0)), out);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_EncodeJPEGQuality100)->Arg(1)->Arg(2)->ArgName("threads")->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DecodeHEIF(benchmark::State& state) {
  static const std::vector<uint8_t> file = [] {
    std::vector<uint8_t> bytes;
    if (const char* path = std::getenv("BRENVIA_BENCH_HEIC")) {
      std::ifstream in(path, std::ios::binary);
      bytes.assign(std::istreambuf_iterator<char>(in), {});
    } else if (CGImageRef image = photo()) {
      imageio::encodeHEIF(*image, {0.9, 1, false}, bytes);
    }
    return bytes;
  }();
  for (auto _ : state) {
    auto decoded = imageio::decodeData(file.data(), file.size());
    if (!decoded) return state.SkipWithError("the HEIF file cannot be decoded");
    benchmark::DoNotOptimize(decoded->image->data());
  }
}
BENCHMARK(BM_DecodeHEIF)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace brenvia

BENCHMARK_MAIN();
