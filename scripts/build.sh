#!/usr/bin/env bash
# Configures and builds a preset of CMakePresets.json without needing a CMake that knows presets.
#
#   scripts/build.sh [PRESET [TARGET ...]]      release (default), debug, asan, tsan, fuzz, coverage or bench
#
# The build directory is build/PRESET. A compiler cache is used when one is installed.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
shift || true
case $preset in
  release) options=(-DCMAKE_BUILD_TYPE=Release) ;;
  debug) options=(-DCMAKE_BUILD_TYPE=Debug) ;;
  asan) options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVX_SANITIZE=address,undefined) ;;
  tsan) options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVX_SANITIZE=thread) ;;
  fuzz)
    options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 -DBUILD_SHARED_LIBS=OFF
      -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" -DVX_SANITIZE=address,undefined,fuzzer-no-link
      -DVX_BUILD_FUZZERS=ON)
    ;;
  coverage)
    options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14
      -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g -fprofile-instr-generate -fcoverage-mapping")
    ;;
  bench) options=(-DCMAKE_BUILD_TYPE=Release -DVX_BUILD_BENCHMARKS=ON) ;;
  *) echo "unknown preset: $preset" >&2; exit 2 ;;
esac
if command -v ccache >/dev/null; then options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi

cmake -S . -B "build/$preset" -G Ninja "${options[@]}" >/dev/null
targets=()
for target in "$@"; do targets+=(--target "$target"); done
cmake --build "build/$preset" "${targets[@]}" | grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking|Creating|Re-checking)|^ninja: no work' || [ "${PIPESTATUS[0]}" -eq 0 ]
