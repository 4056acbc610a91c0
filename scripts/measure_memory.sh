#!/usr/bin/env bash
# Peak memory and time of whole runs at growing sizes: scripts/measure_memory.sh [MILLIONS ...]     (default: 1 10 100)
#
# Files are made by bench/kernel/make_large in TMPDIR; 100 million points take ten gigabytes there.
set -euo pipefail
cd "$(dirname "$0")/.."

sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1 10 100)
scripts/dependencies.sh --all
scripts/build.sh bench vxunpack make_large

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
outputs=(null txt las laz)
printf '%10s' 'M points'
for output in "${outputs[@]}"; do printf ' %12s %10s' "$output MiB" "$output s"; done
echo
for size in "${sizes[@]}"; do
  build/bench/make_large "$directory/in.vxl" "$size"
  row=$(printf '%10s' "$size")
  for output in "${outputs[@]}"; do
    [ "$output" = null ] || output=$directory/out.$output
    row+=$(python3 - "$directory/in.vxl" "$output" <<'PY'
import os, subprocess, sys, time
begin = time.monotonic()
process = subprocess.Popen(['build/bench/vxunpack', '-i', sys.argv[1], '-o', sys.argv[2]], stdout=subprocess.DEVNULL)
_, status, usage = os.wait4(process.pid, 0)
if status != 0:
    sys.exit('vxunpack failed')
print(' %12.1f %10.1f' % (usage.ru_maxrss / 1024, time.monotonic() - begin), end='')
PY
)
    rm -f "$directory"/out.*
  done
  echo "$row"
done
