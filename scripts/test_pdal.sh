#!/usr/bin/env bash
# Builds everything on Debian 11, which has PDAL and the oldest supported compiler and libraries, runs all tests there,
# and then the pdal command with our stage and with BPF files.
#
# The system is in the folder VX_BULLSEYE_ROOT (default: vxunpack/bullseye in the user's cache). The first run makes it
# from the mirror that this machine uses (1.7 GB, about two minutes). Needs root for chroot.
set -euo pipefail
cd "$(dirname "$0")/.."

root=${VX_BULLSEYE_ROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/vxunpack/bullseye}
packages=(g++ cmake ninja-build libtbb-dev zlib1g-dev libdeflate-dev libgdal-dev libgeotiff-dev liblaszip-dev nlohmann-json3-dev
  libgtest-dev libpdal-dev pdal)

fail() { echo "test_pdal: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "needs root, for debootstrap and chroot"

# Mounts are private to this run and end with it.
if [ "${VX_IN_NAMESPACE:-}" != yes ]; then
  unshare --mount true || fail "this environment does not permit mounts"
  VX_IN_NAMESPACE=yes exec unshare --mount --propagation private scripts/test_pdal.sh "$@"
fi

make_root() {
  echo "making a Debian 11 root in $root"
  command -v debootstrap >/dev/null || { apt-get update -qq; apt-get install -y -qq --no-install-recommends debootstrap >/dev/null; }
  local mirror log
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | grep -v security | head -n 1)
  [ -n "$mirror" ] || fail "apt knows no mirror"
  log=$(mktemp)
  # Under another name until it is complete, so that an incomplete one is never used.
  rm -rf "$root.new"
  mkdir -p "$root.new"
  chmod 755 "$root.new"
  debootstrap --variant=minbase --include=ca-certificates bullseye "$root.new" "$mirror" >"$log" 2>&1 ||
    { tail -n 5 "$log" >&2; fail "debootstrap failed; does the mirror have Debian 11?"; }
  rm -f "$log"
  mv "$root.new" "$root"
}

inside() {
  chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    VX_DATA="$([ ! -d ../shared/data ] || echo /shared/data)" bash -euo pipefail -c "$1" </dev/null
}

[ -x "$root/usr/bin/apt-get" ] || make_root
mount --bind /proc "$root/proc"
mount --rbind /dev "$root/dev"
if ! inside "dpkg-query -W ${packages[*]}" >/dev/null 2>&1; then
  echo "installing: ${packages[*]}"
  cp /etc/resolv.conf "$root/etc/"
  for settings in /etc/apt/apt.conf.d/99*; do [ ! -e "$settings" ] || cp "$settings" "$root/etc/apt/apt.conf.d/"; done
  inside "apt-get update -qq && apt-get install -y -qq --no-install-recommends ${packages[*]} >/dev/null" ||
    fail "the packages could not be installed"
fi

# The source is mounted read-only, not copied.
mkdir -p "$root/source" "$root/shared" "$root/build"
mount --bind . "$root/source"
mount -o remount,bind,ro "$root/source"
[ ! -d ../shared ] || mount --bind ../shared "$root/shared"

echo "building ..."
inside "cmake -S /source -B /build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build /build | grep -vE '^\[[0-9]+/[0-9]+\] |^ninja: no work' || [ \${PIPESTATUS[0]} -eq 0 ]
  test -e /build/libpdal_plugin_reader_quillmoran.so
  cd /build && ctest --output-on-failure -j $(nproc) | grep -vE '^ +Start | Passed |^Test project'"
inside "/source/tests/formats/pdal/check_stage.sh /build"
