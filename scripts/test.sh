#!/usr/bin/env bash
# Builds everything and runs the tests: scripts/test.sh [PRESET [CTEST-ARGUMENT ...]]
#
# If there are sample files (../shared/vectors), the program must also decode each of them exactly. Only failures are
# printed, and a summary.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
shift || true
targets=()
case $preset in
  release | debug) scripts/dependencies.sh ;;
  *) scripts/dependencies.sh --all ;;
esac
if [ "$preset" = tsan ]; then
  targets=(threads_test vxunpack)
  set -- -R '^threads_test' "$@"
fi
scripts/build.sh "$preset" "${targets[@]}"

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

scripts/run_tests.sh "build/$preset" "$@"
