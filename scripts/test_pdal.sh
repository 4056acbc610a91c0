#!/usr/bin/env bash
# Builds the libraries and programs on Debian 11, which has PDAL and the oldest supported compiler and libraries. Runs
# the tests there that concern those libraries, and then the pdal command with our stage and with BPF files.
#
#   scripts/test_pdal.sh            does it
#   scripts/test_pdal.sh --root     only makes the root directory, if there is none
#
# The system is in the folder VX_BULLSEYE_ROOT (default: vxunpack/bullseye in the user's cache). The first run makes it
# from the mirror that this machine uses (1.7 GB, about two minutes); later runs use it, and its compiler cache, again.
# Needs root for chroot.
set -euo pipefail
cd "$(dirname "$0")/.."

root=${VX_BULLSEYE_ROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/vxunpack/bullseye}
packages=(g++ cmake ninja-build libtbb-dev zlib1g-dev libdeflate-dev libxxhash-dev libgdal-dev libgeotiff-dev liblaszip-dev
  nlohmann-json3-dev libgtest-dev libpdal-dev pdal ccache)
# LAS, BPF, coordinate systems, reports and threads use libraries of the system; the other tests do not.
tests=(formats_test formats_pdal_test apps_test stress_test)

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
    CCACHE_DEPEND=yes \
    bash -euo pipefail -c "$1" </dev/null
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

[ "${1:-}" != --root ] || exit 0

# The source is mounted read-only, not copied.
rm -rf "$root/build" # of another checkout perhaps, whose files are newer
mkdir -p "$root/source" "$root/build"
mount --bind . "$root/source"
mount -o remount,bind,ro "$root/source"

begin=$SECONDS
inside "cmake -S /source -B /build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >/dev/null
  cmake --build /build --target vxdiff vxinfo vxindex vxpack vxunpack libvxunpack qm_formats_pdal ${tests[*]} |
    grep -vE '^\[[0-9]+/[0-9]+\] |^ninja: no work' || [ \${PIPESTATUS[0]} -eq 0 ]"
echo "built the programs and ${tests[*]} (Debian 11, $((SECONDS - begin)) s)"
for test in "${tests[@]}"; do inside "cd /build && timeout 900 ./$test --gtest_brief=1"; done
inside "/source/tests/formats/pdal/check_stage.sh /build"
