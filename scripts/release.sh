#!/usr/bin/env bash
# Makes the files of a release from the last commit, in build/release-files or DIRECTORY:
#
#   vxunpack-VERSION.tar.gz       the source archive, with the same bytes each time
#   vxunpack-VERSION.spdx.json    the libraries that the programs and libvxunpack link, with the versions found here
#   SHA256SUMS                    digests of both
#
#   scripts/release.sh [DIRECTORY]    all of them; builds the archive twice and compares
#   scripts/release.sh --archive [DIRECTORY]    the archive only
#   scripts/release.sh --version      prints the version
#
# The version is that of CMakeLists.txt, if CHANGELOG.md begins with its section. If the changes are still unreleased,
# the date and the hash of the commit are added.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  echo "release: $*" >&2
  exit 1
}

version=$(sed -n 's/^project(vxunpack VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
heading=$(sed -n 's/^## \([^ ]*\).*/\1/p' CHANGELOG.md | head -n 1)
case $heading in
  "$version") ;;
  Unreleased) version+=+git$(TZ=UTC git log -1 --format=%cd --date=format-local:%Y%m%d).$(git rev-parse --short=7 HEAD) ;;
  *) fail "CMakeLists.txt has version $version, but CHANGELOG.md begins with $heading" ;;
esac
if [ "${1:-}" = --version ]; then
  echo "$version"
  exit 0
fi
archive_only=no
if [ "${1:-}" = --archive ]; then
  archive_only=yes
  shift
fi
output=${1:-build/release-files}
mkdir -p "$output"

# write_archive REPOSITORY FILE: git sorts the files and gives all of them the time of the commit.
write_archive() {
  git -C "$1" -c tar.umask=0022 archive --format=tar --prefix="vxunpack-$version/" HEAD | gzip -9n >"$2"
}

[ -z "$(git status --porcelain --untracked-files=no)" ] || echo "release: the archive has no uncommitted changes" >&2
archive=$output/vxunpack-$version.tar.gz
write_archive . "$archive"
[ "$archive_only" = no ] || exit 0

# Again, from another clone and in another environment.
again=$(mktemp -d)
trap 'rm -rf "$again"' EXIT
git clone -q --no-hardlinks . "$again/clone"
git -C "$again/clone" checkout -q --detach "$(git rev-parse HEAD)"
(umask 077; TZ=Asia/Kathmandu LC_ALL=C write_archive "$again/clone" "$again/archive")
cmp "$archive" "$again/archive" || fail "two builds of the archive differ"

scripts/build.sh release vxunpack vxpack vxinfo vxdiff vxindex vxview libvxunpack qm_formats_srs >/dev/null
python3 scripts/spdx.py "$version" build/release >"$output/vxunpack-$version.spdx.json"
(cd "$output" && sha256sum "vxunpack-$version.tar.gz" "vxunpack-$version.spdx.json" >SHA256SUMS)
echo "release: vxunpack $version in $output: the archive has $(stat -c %s "$archive") bytes, the same twice"
