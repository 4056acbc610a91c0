#!/usr/bin/env bash
# Configures and builds a preset of CMakePresets.json:
#
#   scripts/build.sh [PRESET [TARGET ...]]      release (default), debug, asan, tsan, fuzz, coverage or bench
#
# The build directory is build/PRESET; that of bench is build/release. ccache is used when it is installed. A terminal
# shows one line of progress, a log only what is wrong.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
shift || true
options=()
if command -v ccache >/dev/null; then
  options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  # Checkouts in other directories, and the build directories of this one, share their objects.
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$PWD")} CCACHE_NOHASHDIR=yes
fi

cmake --preset "$preset" "${options[@]}" >/dev/null
quiet=(-- --quiet)
[ ! -t 1 ] || quiet=()
targets=()
[ $# -eq 0 ] || targets=(--target "$@")
begin=$SECONDS
cmake --build --preset "$preset" "${targets[@]}" "${quiet[@]}"
echo "built ${*:-everything} ($preset, $((SECONDS - begin)) s)"
