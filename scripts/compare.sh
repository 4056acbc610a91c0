#!/usr/bin/env bash
# Speed and memory of vxunpack and vxpack beside LASzip and PDAL, as whole processes on the same points, with goals:
#
#   scripts/compare.sh [--millions "1 10"] [--rounds 5]
#   scripts/compare.sh --check      floors in place of goals, at 1 million points in 3 rounds; exit status 1 below one
#   scripts/compare.sh --smoke      once with a few points: whether it works, no figures to rely on
#
# The points are those of autzen_trim.las, of the real files that stand beside the checkout (VX_SHARED, else
# ../shared), repeated as a square of copies with noise in their intensity; without it, of a made-up survey. Rows of
# PDAL need a pdal on the PATH. TMPDIR holds the files, 250 MB per million points, and should be on a real disk.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=goals
millions=
rounds=
small=0.1
while [ $# -gt 0 ]; do
  case $1 in
    --check) mode=check ;;
    --smoke) mode=smoke ;;
    --millions) millions=$2; shift ;;
    --rounds) rounds=$2; shift ;;
    *) echo "unknown option: $1" >&2; exit 2 ;;
  esac
  shift
done
case $mode in
  goals) : "${millions:=1 10}" "${rounds:=5}" ;;
  check) : "${millions:=1}" "${rounds:=3}" ;;
  smoke) : "${millions:=0.02}" "${rounds:=1}"; small=0.005 VX_SHARED=/nonexistent ;;
esac

scripts/dependencies.sh --all
scripts/build.sh bench vxpack vxunpack make_large compare
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

tiling=("${VX_SHARED:-../shared}/data/las/autzen_trim.las" square)
[ -f "${tiling[0]}" ] || tiling=()
inputs=()
for size in $small $millions; do
  inputs+=("$directory/${size}_million.las")
  build/bench/make_large "${inputs[-1]}" "$size" "${tiling[@]}"
done
mkdir "$directory/outputs"
build/bench/compare "$mode" "$directory/outputs" "$rounds" "${inputs[@]}"
