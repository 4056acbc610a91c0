#!/usr/bin/env bash
# Builds and runs the benchmarks of the inner loops: scripts/bench.sh [--smoke | GOOGLE-BENCHMARK-ARGUMENT ...]
#
# --smoke runs each for a moment: they verify their results before they time anything, so this shows that they still
# build and that the loops they measure are right. scripts/bench_encode.sh and scripts/compare.sh, which compare whole
# files and programs, are shown so, too.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/dependencies.sh --all
scripts/build.sh bench
arguments=("$@")
[ "${1:-}" = --smoke ] && arguments=(--benchmark_min_time=0.001)
for program in build/bench/*_bench; do
  "$program" "${arguments[@]}"
done
if [ "${1:-}" = --smoke ]; then
  scripts/bench_encode.sh --smoke
  scripts/compare.sh --smoke
fi
