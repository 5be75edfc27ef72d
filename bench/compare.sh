#!/usr/bin/env bash
# Times the engine's six-operation point chain against libvips doing the nearest equivalent, on the
# same in-memory 12 MP picture with two threads, and prints the ratio.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build}"
scripts/build -DBRENVIA_BENCH=ON > /dev/null
[ -x "$build/bench/vips_bench" ] || { echo "libvips C++ library missing: run scripts/install-deps" >&2; exit 1; }

ms() { grep -E "^$1" | awk '{print $2}'; }
ours=$("$build/bench/engine_bench" --benchmark_filter='BM_PointChain/2' --benchmark_min_time=3 | ms 'BM_PointChain/2')
vips=$("$build/bench/vips_bench" --benchmark_min_time=3 | ms 'BM_VipsPointChain/2')
awk -v o="$ours" -v v="$vips" 'BEGIN {
  printf "point chain, 12 MP, 2 threads\n  brenvia  %8.1f ms\n  libvips  %8.1f ms\n  speed-up %8.2fx\n", o, v, v / o }'
