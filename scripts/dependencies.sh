#!/usr/bin/env bash
# Installs what building and testing need from Debian's or Ubuntu's packages. Does nothing when all of it is there.
#
#   scripts/dependencies.sh          what a build and its tests need
#   scripts/dependencies.sh --all    and what checks and benchmarks need
set -euo pipefail

packages=(g++ cmake ninja-build libtbb-dev zlib1g-dev libgdal-dev libgtest-dev)
if [ "${1:-}" = --all ]; then
  packages+=(libbenchmark-dev clang-format-14 clang-tidy-14 valgrind python3)
fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

run=()
[ "$(id -u)" -eq 0 ] || run=(sudo)
export DEBIAN_FRONTEND=noninteractive
echo "installing: ${missing[*]}"
"${run[@]}" apt-get update -qq
"${run[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
