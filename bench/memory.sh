#!/usr/bin/env bash
# Peak resident memory of a whole 12 MP render: the six-operation point chain followed by a
# Gaussian blur of sigma 30, 8-bit in and out, two threads (source and output buffers included).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build}"
scripts/build -DBRENVIA_BENCH=ON > /dev/null
/usr/bin/time -f "%M" -o /tmp/brenvia-rss.$$ \
  "$build/bench/engine_bench" --benchmark_filter='BM_PointChainWithBlur' --benchmark_min_time=0.5 > /dev/null
awk '{ printf "peak RSS, point chain + sigma 30 blur, 12 MP: %.0f MB\n", $1 / 1024 }' /tmp/brenvia-rss.$$
rm -f /tmp/brenvia-rss.$$
