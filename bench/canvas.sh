#!/usr/bin/env bash
# Times `brenvia render` of the adjustment recipe with the picture straightened by 3 degrees and
# cropped, file to file at quality 100 on a 12 MP photo, against the same render without canvas
# changes and against libvips rotating and cropping alone, in one run; prints the ratios.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/timing.sh
start_bench
recipe=bench/recipes/adjust.json
crop=(216 162 3600 2700)

plain=$(best "$build/brenvia" render "$recipe" "$work/photo.jpg" -o "$work/plain.jpg" --quality 100)
ours=$(best "$build/brenvia" render "$recipe" "$work/photo.jpg" -o "$work/ours.jpg" --quality 100 \
  --straighten 3 --crop "$(IFS=,; echo "${crop[*]}")")
vips=$(best "$build/bench/vips_canvas" "$work/photo.jpg" "$work/vips.jpg" "${crop[@]}")

awk -v p="$plain" -v o="$ours" -v v="$vips" 'BEGIN {
  printf "straighten 3 degrees + crop, 12 MP JPEG to JPEG at quality 100\n"
  printf "  plain adjustment render  %6d ms\n  straightened and cropped %6d ms  (%.2fx the plain render)\n", p, o, o / p
  printf "  libvips rotate + crop    %6d ms  (brenvia %.2fx faster)\n", v, v / o }'
