# Shared by the benchmark scripts: source it from the project folder.

# Builds the benchmarks, makes the scratch folder $work (removed on exit) and a 12 MP photo in it,
# $work/photo.jpg; $build is the build folder.
start_bench() {
  build="${BUILD_DIR:-build}"
  scripts/build -DBRENVIA_BENCH=ON > /dev/null
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  make_photo "$work/photo.jpg"
}

# Fastest of five runs of a command, in milliseconds.
best() {
  local best=999999
  for _ in 1 2 3 4 5; do
    local start end
    start=$(date +%s%N)
    "$@" > /dev/null || { echo "failed: $*" >&2; return 1; }
    end=$(date +%s%N)
    best=$(( (end - start) / 1000000 < best ? (end - start) / 1000000 : best ))
  done
  echo "$best"
}

# The example photo enlarged to 4032 x 3024, standing in for a 12 MP camera picture, as a JPEG.
make_photo() {
  vips thumbnail examples/photos/ladybird.jpg "$1[Q=95]" 4032 --height 3024 --size force
}
