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

. scripts/debian_root.sh

root=${VX_BULLSEYE_ROOT:-$root_cache/bullseye}
packages=(g++ cmake ninja-build libtbb-dev zlib1g-dev libdeflate-dev libxxhash-dev libgdal-dev libgeotiff-dev liblaszip-dev
  libcurl4-openssl-dev libpng-dev nlohmann-json3-dev libgtest-dev libpdal-dev pdal ccache)
# LAS, BPF, coordinate systems, reports and threads use libraries of the system; the other tests do not.
tests=(formats_test formats_pdal_test apps_test stress_test)

require_root "$@"
make_root bullseye "$root"
mount_root "$root"
install_packages "$root" "${packages[@]}"

[ "${1:-}" != --root ] || exit 0

# The source is mounted read-only, not copied.
rm -rf "$root/build" # of another checkout perhaps, whose files are newer
mkdir -p "$root/source" "$root/build"
mount --bind . "$root/source"
mount -o remount,bind,ro "$root/source"

begin=$SECONDS
inside "$root" "export CCACHE_DEPEND=yes
  cmake -S /source -B /build -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS_RELEASE='-O1 -DNDEBUG' -DCMAKE_UNITY_BUILD=ON -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >/dev/null
  cmake --build /build --target vxdiff vxinfo vxindex vxpack vxunpack vxview libvxunpack qm_formats_pdal ${tests[*]} |
    grep -vE '^\[[0-9]+/[0-9]+\] |^ninja: no work' || [ \${PIPESTATUS[0]} -eq 0 ]"
echo "built the programs and ${tests[*]} (Debian 11, $((SECONDS - begin)) s)"
# apps_test takes longer than all others, which run beside it.
run_test() { inside "$root" "cd /build && timeout 900 ./$1 --gtest_brief=1 --gtest_filter='${2:-*}'"; }
# What takes longest there does not depend on the release.
run_test apps_test '-*Pipes.*:*AnyNumberOfThreads:*OrdersPoints:*FindsTheSameOrder*:*LimitsLists*:TerminalPicture.*:Vxdiff.*' >"$root/apps_test.log" 2>&1 &
broken=0
for test in "${tests[@]}"; do
  [ "$test" = apps_test ] || run_test "$test" || broken=1
done
wait $! || broken=1
cat "$root/apps_test.log"
[ "$broken" -eq 0 ]
inside "$root" "/source/tests/formats/pdal/check_stage.sh /build"
