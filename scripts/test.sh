#!/usr/bin/env bash
# Builds everything and runs the tests: scripts/test.sh [PRESET [CTEST-ARGUMENT ...]]
#
# If there are sample files (../shared/vectors), the program must also decode each of them exactly.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
shift || true
if [ "$preset" = fuzz ]; then scripts/dependencies.sh --all; else scripts/dependencies.sh; fi
scripts/build.sh "$preset"

# A race or an overflow is a failure, even if the test passes.
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1
vectors=../shared/vectors
if [ -e "$vectors/check.py" ] && command -v python3 >/dev/null; then
  # The memory of the sanitizers would exceed the limits for hostile files.
  skip=()
  [ "$preset" = release ] || skip=(--skip-hostile --limit 100)
  python3 "$vectors/check.py" "build/$preset/vxunpack" "$vectors" "${skip[@]}"
fi
(cd "build/$preset" && ctest --output-on-failure -j "$(nproc)" "$@")
