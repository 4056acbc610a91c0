#!/usr/bin/env bash
# Peak memory and time of whole runs at growing sizes: scripts/measure_memory.sh [MILLIONS ...]     (default: 1 10 100)
#
# Files are made by bench/kernel/make_large in TMPDIR; 100 million points take a gigabyte or more there.
set -euo pipefail
cd "$(dirname "$0")/.."

sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1 10 100)
scripts/dependencies.sh --all
scripts/build.sh bench vxunpack make_large

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
printf '%10s %12s %10s %12s %10s\n' 'M points' 'null MiB' 'null s' 'text MiB' 'text s'
for size in "${sizes[@]}"; do
  build/bench/make_large "$directory/in.vxl" "$size"
  row=$(printf '%10s' "$size")
  for output in null /dev/null; do
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
  done
  echo "$row"
done
