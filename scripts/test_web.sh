#!/usr/bin/env bash
# Builds the decoder and the viewer for browsers, checks their types, and tests them in Node.js and in Chromium, which
# reads files from nginx and from a server with faults. Compares with the Python module of the release build. Skipped
# where Emscripten or Chromium cannot be installed.
set -euo pipefail
cd "$(dirname "$0")/.."

log=$(mktemp)
trap 'rm -f "$log" "$log".*' EXIT
if ! scripts/dependencies.sh --web >"$log" 2>&1; then
  echo "web: skipped, since Emscripten or Chromium cannot be installed: $(grep . "$log" | tail -n 1)"
  exit 0
fi
[ -d build/release/python/vxl ] || { echo "test_web.sh: there is no Python module in build/release" >&2; exit 1; }
scripts/web.sh --build

cd web
npm run --silent check
run() { node --test --test-reporter=tap "${@:2}" >"$log.$1" 2>&1; } # NAME TEST...
# Those in Chromium often wait.
run node decoder/test/*.test.mjs viewer/test/*.test.mjs &
status=0
run browser tests/*.test.mjs || status=$?
wait $! || status=$?
cat "$log".*
count() { awk -v name="$1" '$1 == "#" && $2 ~ name { n += $3 } END { print n + 0 }' "$log".*; }
echo "$(count '^pass$') passed, $(count '^(fail|cancelled)$') failed"
exit "$status"
