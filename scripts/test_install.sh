#!/usr/bin/env bash
# Installs into a temporary prefix and uses the result as others do: the programs, the library from CMake and from
# pkg-config. The exported symbols and the installed headers must be those that the repository lists.
#
#   scripts/test_install.sh             checks
#   scripts/test_install.sh --update    replaces the lists of symbols, for an intended change
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  echo "$*" >&2
  exit 1
}

scripts/build.sh release
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build/release --prefix "$prefix/usr" >/dev/null
bin=$prefix/usr/bin
library=$(find "$prefix/usr" -name libvxunpack.so)

# Functions, data, vtables and type descriptions; "W" are instances of templates, which vary with the compiler.
symbols=cmake/libvxunpack.symbols
nm -DC --defined-only "$library" | cut -d' ' -f2- | grep -v '^W' | LC_ALL=C sort -u >"$prefix/symbols"
# The same for the Debian package, each with the first version of the library that has it.
debian_symbols=debian/libvxunpack1.symbols
version=$(sed -n 's/^project(vxunpack VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
{
  sed -n '/^ (c++|arch-bits=64)/!p' "$debian_symbols"
  awk -v version="$version" '
    NR == FNR { if (split($0, parts, "\"") == 3) first[parts[2]] = parts[3]; next }
    { symbol = substr($0, 3) "@Base"
      print " (c++|arch-bits=64)\"" symbol "\"" (symbol in first ? first[symbol] : " " version) }' \
    "$debian_symbols" "$prefix/symbols"
} >"$prefix/debian_symbols"
if [ "${1:-}" = --update ]; then
  cp "$prefix/symbols" "$symbols"
  cp "$prefix/debian_symbols" "$debian_symbols"
fi
changed="the exported symbols changed; if that is intended: scripts/test_install.sh --update"
diff "$symbols" "$prefix/symbols" || fail "$changed"
diff "$debian_symbols" "$prefix/debian_symbols" || fail "$changed"

# Nothing but the public headers, which include only each other and the standard library.
(cd "$prefix/usr/include" && find . -type f) | LC_ALL=C sort >"$prefix/headers"
(cd include && find . -name '*.h') | LC_ALL=C sort | diff - "$prefix/headers" || fail "other headers are installed"
if grep -rn '^#include "' "$prefix/usr/include" ||
  grep -rnE '^#include <' "$prefix/usr/include" | grep -vE '<(vxunpack/[A-Za-z0-9]+\.h|[a-z_]+)>'; then
  fail "public headers include internal ones"
fi

"$bin/vxunpack" -i examples/survey.vxl -o "$prefix/all.txt" >/dev/null
all=$(($(wc -l <"$prefix/all.txt") - 1))
[ "$all" -eq 2400 ] || fail "the installed program gave $all points"
# Encoding the example again gives the same cloud.
"$bin/vxpack" -i examples/survey.vxl -o "$prefix/again.vxl" >/dev/null
"$bin/vxdiff" examples/survey.vxl "$prefix/again.vxl"
"$bin/vxinfo" -check "$prefix/again.vxl" >/dev/null
# A verbose run finds the installed module that indents coordinate systems; its status is 1.
"$bin/vxunpack" -V -i examples/survey.vxl -o null >"$prefix/summary.txt" 2>/dev/null || true
grep -q '^    GEOGCS' "$prefix/summary.txt" || fail "the installed program does not indent the coordinate system"
# Installed files must not remember where they were built.
if grep -rlF "$PWD" "$prefix/usr"; then fail "installed files name the build directory"; fi

# The examples, built by CMake.
cmake -S examples -B "$prefix/examples" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/usr" >/dev/null
cmake --build "$prefix/examples" >/dev/null
examples=$prefix/examples
boxed=$("$examples/read_box" examples/survey.vxl 500000 500090 4100000 4100040 | wc -l)
[ "$boxed" -ge 1000 ] && [ "$boxed" -le 1400 ] || fail "read_box gave $boxed points"
"$examples/parallel_read" examples/survey.vxl 3 | awk '{ sum += $3 } END { exit sum != 2400 }' ||
  fail "parallel_read did not count 2400 points"
"$examples/write_columns" "$prefix/columns.laz" >/dev/null 2>&1
"$bin/vxinfo" "$prefix/columns.laz" | grep -q 1000000 || fail "write_columns did not write 1000000 points"
"$bin/vxunpack" -i examples/survey.vxl -ofld xyz -o "$prefix/xyz.txt" >/dev/null
sed 1d "$prefix/xyz.txt" >"$prefix/lines.xyz"
"$examples/custom_source" "$prefix/lines.xyz" "$prefix/lines.vxl" >/dev/null
"$bin/vxdiff" "$prefix/xyz.txt" "$prefix/lines.vxl"

# One of them, built by pkg-config.
export PKG_CONFIG_PATH=$(dirname "$library")/pkgconfig
g++ examples/read_box.cpp $(pkg-config --cflags --libs vxunpack) -Wl,-rpath,"$(dirname "$library")" -o "$prefix/read_box"
[ "$("$prefix/read_box" examples/survey.vxl 500000 500090 4100000 4100040 | wc -l)" -eq "$boxed" ]
echo "install: $all points from the program, $boxed in a box from the library, $(wc -l <"$symbols") exported symbols"
