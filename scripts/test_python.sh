#!/usr/bin/env bash
# Builds the wheel of the Python module, installs it in a virtual environment, and runs the tests that need all of its
# modules: those of the documents and of rasters. Uses the programs of the release build.
set -euo pipefail
cd "$(dirname "$0")/.."

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
/usr/bin/python3 -m venv --system-site-packages "$directory/venv"
python=$directory/venv/bin/python
# With the options of the release build, whose objects are then in the compiler cache.
CMAKE_ARGS=-DVX_WARNINGS_AS_ERRORS=ON "$python" -m pip install --quiet --no-build-isolation --no-index --no-deps . \
  >"$directory/log" 2>&1 || { tail -n 40 "$directory/log" >&2; exit 1; }
rm -rf build/lib.* build/bdist.* python/vxl.egg-info

package=$("$python" -c 'import os, sys; sys.path.pop(0); import vxl; print(os.path.dirname(vxl.__file__))')
case $package in "$directory"/*) ;; *) echo "the module of $package was imported" >&2; exit 1 ;; esac
# The wheel must not need the checkout.
if grep -rlF "$PWD" "$package"; then
  echo "installed files name the build directory" >&2
  exit 1
fi
PATH=$PWD/build/release:$PATH "$python" -m pytest -q -p no:cacheprovider tests/python/test_{docs,raster}.py
echo "python: the wheel has $(du -skL "$package" | cut -f1) kB"
