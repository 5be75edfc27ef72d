#!/usr/bin/env bash
# Renders the before/after pair shown in the README from the example photo, with the built CLI.
set -euo pipefail
cd "$(dirname "$0")/../.."
cli="${BRENVIA:-build/brenvia}"
empty="$(mktemp --suffix=.json)"
trap 'rm -f "$empty"' EXIT
echo '[]' > "$empty"
"$cli" render "$empty" examples/photos/ladybird.jpg -o docs/looks/ladybird.jpg --max-size 480 --quality 80
"$cli" render examples/recipes/faded-film.json examples/photos/ladybird.jpg -o docs/looks/ladybird-faded-film.jpg \
  --max-size 480 --quality 80
"$cli" render examples/film/film.json examples/photos/ladybird.jpg -o docs/looks/ladybird-film.jpg \
  --max-size 480 --quality 80
