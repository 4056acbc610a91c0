#!/usr/bin/env bash
# Builds and runs the benchmarks of the inner loops: scripts/bench.sh [--smoke | GOOGLE-BENCHMARK-ARGUMENT ...]
#
# --smoke runs each of them, and scripts/compare.sh, for a moment. All verify results before they time anything, so this
# shows that the benchmarks still build and that the code they measure is correct.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/dependencies.sh --all
scripts/build.sh bench
arguments=("$@")
[ "${1:-}" = --smoke ] && arguments=(--benchmark_min_time=0.001)
for program in build/release/*_bench; do
  "$program" "${arguments[@]}"
done
[ "${1:-}" != --smoke ] || scripts/compare.sh --smoke
