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
  # Sources that are not in the cache are not preprocessed twice. Groups of sources (cmake/Groups.cmake) are: they include
  # by absolute paths, so that only their preprocessed text is the same in other directories.
  case $preset in asan | fuzz | tsan) ;; *) export CCACHE_DEPEND=yes ;; esac
fi

directory=build/${preset/bench/release}
if cmake --list-presets >/dev/null 2>&1; then
  cmake --preset "$preset" "${options[@]}" >/dev/null
else # before CMake 3.20
  [ "$preset" = release ] || [ "$preset" = debug ] || { echo "build.sh: $preset needs CMake 3.20" >&2; exit 1; }
  cmake -S . -B "$directory" -G Ninja -DCMAKE_BUILD_TYPE="${preset^}" "${options[@]}" >/dev/null
fi
targets=()
[ $# -eq 0 ] || targets=(--target "$@")
# Ninja before 1.11 cannot be quiet.
quiet=()
if [ ! -t 1 ] && [[ $(ninja --help 2>&1) == *--quiet* ]]; then quiet=(-- --quiet); fi
begin=$SECONDS
cmake --build "$directory" "${targets[@]}" "${quiet[@]}"
echo "built ${*:-everything} ($preset, $((SECONDS - begin)) s)"
