#!/usr/bin/env bash
# Peak memory and time of whole runs at growing sizes: scripts/measure_memory.sh [MILLIONS ...]     (default: 1 10 100)
#
# The points are a survey that make_large writes to a LAS file in TMPDIR. "pack" is vxpack, which makes a .vxl file of
# it; the other columns are vxunpack from that file. 100 million points take twelve gigabytes.
set -euo pipefail
cd "$(dirname "$0")/.."

sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1 10 100)
scripts/dependencies.sh --all
scripts/build.sh bench vxpack vxunpack make_large

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
outputs=(null txt las laz)
# Peak memory in MiB and seconds of a command.
measure() {
  python3 - "$@" <<'PY'
import os, subprocess, sys, time
begin = time.monotonic()
process = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL)
_, status, usage = os.wait4(process.pid, 0)
if status != 0:
    sys.exit(sys.argv[1] + ' failed')
print(' %12.1f %10.1f' % (usage.ru_maxrss / 1024, time.monotonic() - begin), end='')
PY
}

printf '%10s' 'M points'
for column in pack "${outputs[@]}"; do printf ' %12s %10s' "$column MiB" "$column s"; done
echo
for size in "${sizes[@]}"; do
  build/bench/make_large "$directory/in.las" "$size"
  row=$(printf '%10s' "$size")
  row+=$(measure build/bench/vxpack -i "$directory/in.las" -o "$directory/in.vxl")
  rm -f "$directory/in.las"
  for output in "${outputs[@]}"; do
    [ "$output" = null ] || output=$directory/out.$output
    row+=$(measure build/bench/vxunpack -i "$directory/in.vxl" -o "$output")
    rm -f "$directory"/out.*
  done
  echo "$row"
done
