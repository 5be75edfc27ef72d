#!/usr/bin/env bash
# Times `brenvia render` of a colour layer masked by the photo's depth (focused at the centre),
# file to file at quality 100 on a 12 MP portrait whose depth map and matte follow the picture as
# phones store them, against the same layer without the mask; then face detection on a 12 MP
# portrait, as the time `info --faces` adds to `info`. Prints the ratio and the detection time.
set -euo pipefail
cd "$(dirname "$0")/.."
source bench/timing.sh
start_bench

# The 12 MP photo with a 768 x 576 depth ramp and matte appended, listed in a container directory.
vips xyz "$work/xy.v" 768 576
vips extract_band "$work/xy.v" "$work/x.v" 0
vips linear "$work/x.v" "$work/depth.jpg[Q=90]" 0.33 0 --uchar
vips linear "$work/x.v" "$work/matte.jpg[Q=90]" 0.33 0 --uchar
python3 - "$work/photo.jpg" "$work/depth.jpg" "$work/matte.jpg" "$work/portrait.jpg" <<'PY'
import sys
main, depth, matte = (open(p, "rb").read() for p in sys.argv[1:4])
def item(semantic, data):
    return f'<rdf:li><Container:Item Item:Semantic="{semantic}" Item:Mime="image/jpeg" Item:Length="{len(data)}"/></rdf:li>'
xmp = ('<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF><rdf:Description><Container:Directory><rdf:Seq>'
       '<rdf:li><Container:Item Item:Semantic="Primary" Item:Mime="image/jpeg"/></rdf:li>'
       + item("Depth", depth) + item("PortraitMatte", matte) +
       '</rdf:Seq></Container:Directory></rdf:Description></rdf:RDF></x:xmpmeta>').encode()
payload = b"http://ns.adobe.com/xap/1.0/\0" + xmp
segment = b"\xff\xe1" + (len(payload) + 2).to_bytes(2, "big") + payload
open(sys.argv[4], "wb").write(main[:2] + segment + main[2:] + depth + matte)
PY
vips thumbnail tests/data/astronaut.png "$work/face.jpg[Q=95]" 4032 --height 3024 --size force

plain=$(best "$build/brenvia" render bench/recipes/color-layer.json "$work/portrait.jpg" -o "$work/plain.jpg" \
  --quality 100)
masked=$(best "$build/brenvia" render bench/recipes/depth-masked-color-layer.json "$work/portrait.jpg" \
  -o "$work/masked.jpg" --quality 100)
info=$(best "$build/brenvia" info "$work/face.jpg")
faces=$(best "$build/brenvia" info --faces "$work/face.jpg")

awk -v p="$plain" -v m="$masked" -v i="$info" -v f="$faces" 'BEGIN {
  printf "colour layer on a 12 MP portrait with depth, JPEG to JPEG at quality 100\n"
  printf "  without a mask           %6d ms\n  depth mask, centre focus %6d ms  (%.2fx the unmasked render)\n", p, m, m / p
  printf "face detection on a 12 MP portrait: %d ms (info --faces %d ms, info %d ms)\n", f - i, f, i }'
