#!/usr/bin/env bash
# Tests the reading of remote files with the programs of the release build, against nginx and a server with faults, both
# on free ports of this machine.
set -euo pipefail
cd "$(dirname "$0")/.."

log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
VX_PROGRAMS=build/release /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/remote >"$log" 2>&1 || status=$?
cat "$log"
count() { tail -n 1 "$log" | grep -oE "[0-9]+ ($1)" | awk '{ n += $1 } END { print n + 0 }'; }
echo "$(count passed) passed, $(count 'failed|error') failed"
exit "$status"
