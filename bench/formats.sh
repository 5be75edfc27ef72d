#!/usr/bin/env bash
# File-format costs on a 12 MP photo, each against its reference tool:
#  - JPEG at quality 100 with full chroma: our encoder (one thread, and two) against
#    `cjpeg -quality 100 -sample 1x1` on the same PPM. cjpeg's time includes reading the PPM.
#  - HEIF decoding to RGB: our reader against heif-convert. heif-convert always writes a file, so
#    its time to raw Y4M (decode, no colour conversion, no compression) is the floor, and its time
#    to PNG is shown beside it.
# Prints each time (fastest of five) and the ratios.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/timing.sh
start_bench
vips copy "$work/photo.jpg" "$work/photo.ppm"
heif-enc --quality 90 "$work/photo.jpg" -o "$work/photo.heic" > /dev/null

cjpeg_ms=$(best sh -c "cjpeg -quality 100 -sample 1x1 '$work/photo.ppm' > '$work/cjpeg.jpg'")
y4m_ms=$(best heif-convert --quiet "$work/photo.heic" "$work/ref.y4m")
png_ms=$(best heif-convert --quiet "$work/photo.heic" "$work/ref.png")

# Minimum real time of five repetitions of each benchmark, in milliseconds.
BRENVIA_BENCH_PPM="$work/photo.ppm" BRENVIA_BENCH_HEIC="$work/photo.heic" \
  "$build/bench/formats_bench" --benchmark_repetitions=5 --benchmark_format=csv 2> /dev/null > "$work/ours.csv"
ours() { grep "^\"$1\"," "$work/ours.csv" | cut -d, -f3 | sort -g | head -1 | cut -d. -f1; }
jpeg1=$(ours "BM_EncodeJPEGQuality100/threads:1/real_time")
jpeg2=$(ours "BM_EncodeJPEGQuality100/threads:2/real_time")
heif=$(ours "BM_DecodeHEIF/real_time")

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
echo "JPEG q100 4:4:4, 12 MP: cjpeg ${cjpeg_ms} ms; ours ${jpeg1} ms on 1 thread ($(ratio "$jpeg1" "$cjpeg_ms")x)," \
     "${jpeg2} ms on 2 threads ($(ratio "$jpeg2" "$cjpeg_ms")x); target <= 1.2x"
echo "HEIF decode, 12 MP: heif-convert to Y4M ${y4m_ms} ms, to PNG ${png_ms} ms; ours ${heif} ms" \
     "($(ratio "$heif" "$y4m_ms")x the Y4M floor); target <= 1.2x"
