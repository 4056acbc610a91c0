#!/usr/bin/env bash
# Installs into a temporary prefix and builds examples/read_points against it, as a user's project would.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/build.sh release
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build/release --prefix "$prefix/usr" >/dev/null
cmake -S examples/read_points -B "$prefix/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/usr" >/dev/null
cmake --build "$prefix/build" >/dev/null

"$prefix/usr/bin/vxunpack" -i examples/survey.vxl -o "$prefix/all.txt" >/dev/null
all=$(($(wc -l <"$prefix/all.txt") - 1))
boxed=$("$prefix/build/read_points" examples/survey.vxl 500000 500090 4100000 4100040 | wc -l)
if [ "$all" -ne 2400 ] || [ "$boxed" -lt 1000 ] || [ "$boxed" -gt 1400 ]; then
  echo "installed program and library gave $all and $boxed points" >&2
  exit 1
fi
# Packed again and decoded it is the same text.
"$prefix/usr/bin/vxpack" -i examples/survey.vxl -o "$prefix/again.vxl" >/dev/null
"$prefix/usr/bin/vxunpack" -i "$prefix/again.vxl" -o "$prefix/again.txt" >/dev/null
cmp "$prefix/all.txt" "$prefix/again.txt"
"$prefix/usr/bin/vxinfo" -check "$prefix/again.vxl" >/dev/null
# A verbose run finds the installed module that indents coordinate systems; its status is 1 by tradition.
"$prefix/usr/bin/vxunpack" -V -i examples/survey.vxl -o null >"$prefix/summary.txt" 2>/dev/null || true
grep -q '^    GEOGCS' "$prefix/summary.txt" || {
  echo "the installed program does not indent the coordinate system" >&2
  exit 1
}
# Nothing installed may remember where it was built.
if grep -rlF "$PWD" "$prefix/usr"; then
  echo "installed files name the build directory" >&2
  exit 1
fi
echo "install: $all points from the program, $boxed in a box from the library"
