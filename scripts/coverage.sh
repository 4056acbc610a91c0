#!/usr/bin/env bash
# Reports which lines of the decoding code the seeds and the committed inputs of the fuzzers cover. Fails below 90 %.
#
#   scripts/coverage.sh          a table of the files; build/coverage/lines.txt shows the lines themselves
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t targets < <(for source in fuzz/targets/*.cpp; do basename "$source" .cpp; done)
scripts/dependencies.sh --all
scripts/build.sh coverage replay make_samples
build=build/coverage
rm -rf "$build/seeds" "$build"/*.profraw
LLVM_PROFILE_FILE=/dev/null "$build/make_samples" "$build/seeds"
for target in "${targets[@]}"; do
  inputs=("fuzz/corpus/$target.zip")
  for folder in "$build/seeds" fuzz/regressions; do
    [ ! -d "$folder/$target" ] || inputs+=("$folder/$target")
  done
  LLVM_PROFILE_FILE="$build/$target.profraw" "$build/replay" "$target" "${inputs[@]}" >/dev/null 2>&1
done
llvm-profdata-14 merge -o "$build/all.profdata" "$build"/*.profraw

# The code that reads compressed files: the decoder, code common to decoder and encoder, the index and the metadata.
mapfile -t sources < <(git ls-files 'qm_lib_lidar_kernel/src/decode/*' 'qm_lib_lidar_kernel/src/common/*' \
  qm_lib_lidar_core/src/index/DiskRTree.cpp qm_lib_lidar_core/src/index/RTree.cpp \
  qm_lib_lidar_core/src/framework/Metadata.cpp)
llvm-cov-14 show "$build/replay" -instr-profile "$build/all.profdata" "${sources[@]}" >"$build/lines.txt"
llvm-cov-14 export -summary-only "$build/replay" -instr-profile "$build/all.profdata" |
  python3 -c '
import json, os, sys
files = json.load(sys.stdin)["data"][0]["files"]
covered = count = 0
for file in sorted(files, key=lambda file: file["filename"]):
    name = os.path.relpath(file["filename"]) # with a compiler cache it may be relative to the build
    if name not in sys.argv[1:]:
        continue
    lines = file["summary"]["lines"]
    covered += lines["covered"]
    count += lines["count"]
    print("%-65s %5d of %5d %6.1f %%" % (name, lines["covered"], lines["count"], lines["percent"]))
percent = 100 * covered / max(count, 1)
print(f"lines of the decoding code: {covered} of {count}, {percent:.1f} %")
sys.exit(percent <= 90)' "${sources[@]}"
