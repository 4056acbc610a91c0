#!/usr/bin/env bash
# Builds the fuzzers and runs them, one per processor at a time.
#
#   scripts/fuzz.sh [--seconds N] [TARGET ...]    N seconds (default 60) for each target, or for those named
#   scripts/fuzz.sh --quick [TARGET ...]          3 seconds for each, in the build of scripts/test.sh asan
#   scripts/fuzz.sh --keep [TARGET ...]           writes the inputs that reach most of the code into fuzz/corpus
#
# New inputs remain in build/fuzz/corpus for the next run. Findings are written to build/fuzz/findings; once fixed, an
# input is added to fuzz/regressions/TARGET, which the tests replay. The last line is for a test runner.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=60
preset=fuzz
keep=false
targets=()
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=$2; shift ;;
    --quick) seconds=3 preset=asan ;;
    --keep) keep=true ;;
    *) targets+=("$1") ;;
  esac
  shift
done
all() { for source in fuzz/targets/*.cpp; do basename "$source" .cpp; done; }
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(all)

scripts/dependencies.sh --all
scripts/build.sh "$preset" "${targets[@]/#/fuzz_}" make_samples
build=build/$preset
"$build/make_samples" "$build/seeds"
largest=16384
# Real files of other writers, if present.
if [ -d ../shared/vectors/files ]; then
  find ../shared/vectors/files -name '*.vxl' -size "-${largest}c" -exec cp -f {} "$build/seeds/container" \;
fi

# Archives are part of the corpus of the next run.
unpack() {
  mkdir -p "$build/corpus/$1"
  [ ! -e "fuzz/corpus/$1.zip" ] || python3 -m zipfile -e "fuzz/corpus/$1.zip" "$build/corpus/$1"
}
for target in "${targets[@]}"; do unpack "$target"; done

keep_inputs() {
  local target=$1 merged="$build/merged/$1" count=15
  [ "$target" != container ] || count=115 # most of the code decodes these files
  rm -rf "$merged" "$merged.txt" && mkdir -p "$merged"
  # By the edges that they reach, not by how often they reach them: far fewer inputs are needed.
  mkdir -p "$build/seeds/$target"
  "$build/fuzz_$target" -set_cover_merge=1 -use_counters=0 -merge_control_file="$merged.txt" -max_len=$largest \
    -close_fd_mask=1 "$merged" "$build/corpus/$target" "$build/seeds/$target" >/dev/null 2>"$build/merge_$target.log"
  mkdir -p fuzz/corpus
  scripts/keep_inputs.py "$merged.txt" $count "fuzz/corpus/$target.zip"
}
if $keep; then
  for target in "${targets[@]}"; do keep_inputs "$target"; done
  exit
fi

run_target() {
  local target=$1 build=$2 seconds=$3 largest=$4
  local corpus="$build/corpus/$target" findings="$build/findings/$target"
  mkdir -p "$findings"
  rm -f "$findings/.failed" # left by an interrupted run
  local inputs=("$corpus") folder
  for folder in "$build/seeds/$target" "fuzz/regressions/$target"; do
    [ ! -d "$folder" ] || inputs+=("$folder")
  done
  local dictionary=()
  [ ! -e "fuzz/dictionaries/$target" ] || dictionary=(-dict="fuzz/dictionaries/$target")
  # The targets check memory and time themselves; these limits are for runaway processes.
  "$build/fuzz_$target" -max_total_time="$seconds" -max_len="$largest" -timeout=60 -rss_limit_mb=2560 \
    -print_final_stats=1 -close_fd_mask=1 -artifact_prefix="$findings/" "${dictionary[@]}" "${inputs[@]}" \
    >/dev/null 2>"$build/$target.log"
}
export -f run_target
failed=0
printf '%s\n' "${targets[@]}" |
  xargs -P "$(nproc)" -I{} bash -c 'run_target "$@" || touch "$2/findings/$1/.failed"' _ {} "$build" "$seconds" "$largest"
for target in "${targets[@]}"; do
  log="$build/$target.log"
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  covered=$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1 || true)
  echo "$target: ${executions:-0} executions in $seconds s, ${covered:-cov: 0}"
  if [ -e "$build/findings/$target/.failed" ]; then
    rm -f "$build/findings/$target/.failed"
    failed=$((failed + 1))
    echo "$target: FINDING, see $log"
    grep -E 'ERROR:|SUMMARY:|out of proportion|artifact_prefix|Test unit written' "$log" | head -n 5 || true
  fi
done
echo "$((${#targets[@]} - failed)) passed, $failed failed"
[ "$failed" -eq 0 ]
