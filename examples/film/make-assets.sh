#!/usr/bin/env bash
# Makes the pictures of the film look with the vips command: a grain plate, and paper frames for
# square, 4:3, 3:2 and 3:4 pictures (the recipe's custom scaling picks the nearest ratio). Run it
# again to remake them; the noise differs from run to run.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Grain: grey noise about mid-grey, softened so that a grain is about a pixel wide. In overlay mode
# mid-grey leaves the photo as it is.
vips gaussnoise "$work/noise.v" 1024 768 --mean 128 --sigma 30
vips gaussblur "$work/noise.v" "$work/soft.v" 0.6
vips cast "$work/soft.v" "$work/grain.v" uchar
vips jpegsave "$work/grain.v" grain.jpg --Q 75 --strip

# A frame of W x H: white inside (neutral in multiply mode), and towards the edges an uneven dark
# paper tone, faded in over a soft margin.
frame() {
  local name=$1 w=$2 h=$3 border=$4
  vips black "$work/mask.v" "$w" "$h"
  vips draw_rect "$work/mask.v" 255 "$border" "$border" $((w - 2 * border)) $((h - 2 * border)) --fill
  vips gaussblur "$work/mask.v" "$work/edge.v" $((border / 3))
  vips linear "$work/edge.v" "$work/dark.v" -- -0.00392157 1
  vips gaussnoise "$work/paper.v" "$w" "$h" --mean 70 --sigma 24
  vips gaussblur "$work/paper.v" "$work/fibres.v" 1.2
  vips linear "$work/fibres.v" "$work/depth.v" -- -1 255
  vips multiply "$work/dark.v" "$work/depth.v" "$work/shade.v"
  vips linear "$work/shade.v" "$work/tone.v" -- -1 255
  vips cast "$work/tone.v" "$work/frame.v" uchar
  vips jpegsave "$work/frame.v" "$name" --Q 85 --strip
}
frame frame.jpg 1024 1024 48
frame frame-1.33.jpg 1024 768 40
frame frame-1.5.jpg 1024 683 36
frame frame-0.75.jpg 768 1024 40
