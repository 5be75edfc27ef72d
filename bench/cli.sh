#!/usr/bin/env bash
# Times `brenvia render` of an adjustment recipe, file to file at quality 100 on a 12 MP photo,
# against the decode + encode floor (djpeg | cjpeg -quality 100, full chroma) and libvips doing the
# same adjustment, in one run; prints the ratios and our peak resident memory.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/timing.sh
start_bench
recipe=bench/recipes/adjust.json

floor=$(best sh -c "djpeg '$work/photo.jpg' | cjpeg -quality 100 -sample 1x1 > '$work/floor.jpg'")
ours=$(best "$build/brenvia" render "$recipe" "$work/photo.jpg" -o "$work/ours.jpg" --quality 100)
vips=$(best "$build/bench/vips_adjust" "$work/photo.jpg" "$work/vips.jpg")
/usr/bin/time -f "%M" -o "$work/rss" "$build/brenvia" render "$recipe" "$work/photo.jpg" -o "$work/ours.jpg"

awk -v f="$floor" -v o="$ours" -v v="$vips" -v rss="$(cat "$work/rss")" 'BEGIN {
  printf "adjustment recipe, 12 MP JPEG to JPEG at quality 100\n"
  printf "  decode+encode floor  %6d ms\n  brenvia              %6d ms  (%.2fx the floor)\n", f, o, o / f
  printf "  libvips              %6d ms  (brenvia %.2fx faster)\n", v, v / o
  printf "  brenvia peak RSS     %6.0f MB\n", rss / 1024 }'
