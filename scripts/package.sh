#!/usr/bin/env bash
# Builds Debian packages of the last commit, and checks them with lintian if it is installed:
#
#   scripts/package.sh [DIRECTORY]                    in build/packages or DIRECTORY, which is replaced
#   scripts/package.sh --archive FILE [DIRECTORY]     from a source archive of scripts/release.sh
#
# The build dependencies are those in debian/control. On Debian 12, scripts/dependencies.sh --laszip installs the one
# that it lacks, and "apt-get build-dep ." the others. scripts/test_package.sh does all of this on a fresh system.
set -euo pipefail
cd "$(dirname "$0")/.."

archive=
if [ "${1:-}" = --archive ]; then
  archive=$(realpath "$2")
  shift 2
fi
directory=${1:-build/packages}
rm -rf "$directory"
mkdir -p "$directory"
if [ -z "$archive" ]; then
  scripts/release.sh --archive "$directory"
  archive=$(realpath "$directory"/vxunpack-*.tar.gz)
fi
cd "$directory"

version=$(basename "$archive" .tar.gz)
version=${version#vxunpack-}
cp "$archive" "vxunpack_$version.orig.tar.gz"
mkdir source
tar -xf "$archive" -C source --strip-components=1
# The version and the time of a package are those of the archive, so that they have one origin.
date=$(date -u -R -r source/CMakeLists.txt)
cat >source/debian/changelog <<END
vxunpack ($version-1) unstable; urgency=medium

  * Version $version. Its changes are listed in CHANGELOG.md.

 -- $(sed -n 's/^Maintainer: //p' source/debian/control)  $date
END

log=$PWD/build.log
begin=$SECONDS
(cd source && dpkg-buildpackage -us -uc >"$log" 2>&1) || {
  tail -n 30 "$log" >&2
  exit 1
}
rm -rf source
echo "built $(ls ./*.deb | grep -vc dbgsym) packages of vxunpack $version-1 ($((SECONDS - begin)) s)"
if command -v lintian >/dev/null; then
  # Its exit status does not distinguish overridden tags from others.
  lintian --allow-root --display-level '>=warning' --show-overrides ./*.changes >lintian.log 2>&1 || true
  sed 's/^/  /' lintian.log
  if grep -qv '^[NO]:' lintian.log; then exit 1; fi
  echo "lintian: no errors or warnings, except those that are explained above"
fi
