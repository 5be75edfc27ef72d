#!/usr/bin/env bash
# Thumbnails of 12 MP JPEG photos, 256 pixels on the longer side:
#  - one thumbnail on one core (taskset), through the thumbnailer in memory and written to disk;
#  - 100 photos in batch on two cores: `brenvia thumbnail --threads 2` against vipsthumbnail, run
#    as two processes of 50 photos and as one process of 100 (the faster counts), both writing
#    JPEG at quality 100. Each batch starts from an empty cache folder.
# Prints each time (fastest of five), the ratio and the load average.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build}"
scripts/build -DBRENVIA_BENCH=ON > /dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

source bench/timing.sh
make_photo "$work/photo.jpg"
mkdir "$work/in"
for i in $(seq -w 1 100); do cp "$work/photo.jpg" "$work/in/photo$i.jpg"; done

BRENVIA_BENCH_JPEG="$work/photo.jpg" taskset -c 0 "$build/bench/thumbnail_bench" --benchmark_repetitions=5 \
  --benchmark_format=csv 2> /dev/null > "$work/single.csv"
single() { grep "^\"$1\"," "$work/single.csv" | cut -d, -f3 | sort -g | head -1; }
memory=$(single "BM_Thumbnail256FromJPEG/disk:0/real_time")
disk=$(single "BM_Thumbnail256FromJPEG/disk:1/real_time")
echo "256 px thumbnail of a 12 MP JPEG on one core: ${memory} ms in memory, ${disk} ms written to disk; target <= 25 ms"

ours=$(best sh -c "rm -rf '$work/cache' && '$build/brenvia' thumbnail '$work'/in/*.jpg --size 256 --cache '$work/cache' --threads 2")
if ! command -v vipsthumbnail > /dev/null; then
  echo "100 photos on 2 cores: brenvia ${ours} ms; vipsthumbnail is not installed (libvips-tools), no comparison"
  exit 0
fi
mkdir "$work/vips"
vips_two=$(best sh -c "ls '$work'/in/*.jpg | xargs -P 2 -n 50 vipsthumbnail -s 256 -o '$work/vips/%s.jpg[Q=100]'")
vips_one=$(best sh -c "vipsthumbnail '$work'/in/*.jpg -s 256 -o '$work/vips/%s.jpg[Q=100]'")
vips=$(( vips_two < vips_one ? vips_two : vips_one ))
awk -v o="$ours" -v v2="$vips_two" -v v1="$vips_one" -v v="$vips" -v load="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
  printf "100 photos on 2 cores: brenvia %d ms; vipsthumbnail %d ms (two processes), %d ms (one)\n", o, v2, v1
  printf "  brenvia %.2fx faster; target >= 1.8x (load average %s)\n", v / o, load }'
