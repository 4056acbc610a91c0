#!/usr/bin/env bash
# Runs the tests of a build and prints failures and a summary: scripts/run_tests.sh BUILD-DIRECTORY [CTEST-ARGUMENT ...]
set -euo pipefail
cd "$1"
shift

run() { ctest --output-on-failure -j "$(nproc)" "$@"; }
if [ -t 1 ]; then
  run --progress "$@"
else
  run "$@" | grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$|^Internal ctest|^Test project|^$' || [ "${PIPESTATUS[0]}" -eq 0 ]
fi
