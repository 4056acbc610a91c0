#!/usr/bin/env bash
# Sizes and speed of written .vxl files beside LASzip's:
#
#   scripts/bench_encode.sh [--millions "1 10"] [--rounds 5] [FILE ...]
#   scripts/bench_encode.sh --smoke
#
# Sizes are those of the LAS and LAZ files given; by default of all real files that stand beside the checkout
# (VX_SHARED, else ../shared), without them of a made-up survey. Speeds are measured on autzen_trim.las of the real
# files, else on the first file given, else on the survey, repeated to so many millions of points. Everything that
# is written is read back and compared first; TMPDIR holds the files, 80 MB per million points.
# --smoke does the same once with a few points: whether it works, no figures to rely on.
set -euo pipefail
cd "$(dirname "$0")/.."

millions="1 10"
rounds=5
surveyed=0.5 # million points, when there are no files
files=()
while [ $# -gt 0 ]; do
  case $1 in
    --smoke) millions=0.02 rounds=1 surveyed=0.01 VX_SHARED=/nonexistent ;;
    --millions) millions=$2; shift ;;
    --rounds) rounds=$2; shift ;;
    *) files+=("$1") ;;
  esac
  shift
done

scripts/dependencies.sh --all
scripts/build.sh bench make_large pack_compare
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

shared=${VX_SHARED:-../shared}
if [ ${#files[@]} -gt 0 ]; then
  source=${files[0]}
elif [ -d "$shared/data/las" ]; then
  files=("$shared"/data/las/*.las "$shared"/data/laz/*.laz)
  source=$shared/data/las/autzen_trim.las
else
  files=("$directory/survey.las")
  build/bench/make_large "${files[0]}" "$surveyed"
  source=${files[0]}
fi

build/bench/pack_compare sizes "$directory" "${files[@]}"
inputs=()
for size in $millions; do
  inputs+=("$directory/${size}_million.las")
  build/bench/make_large "${inputs[-1]}" "$size" "$source"
done
build/bench/pack_compare speeds "$directory" "$rounds" "${inputs[@]}"
