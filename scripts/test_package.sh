#!/usr/bin/env bash
# Builds the Debian packages of the last commit on a fresh, bare Debian 12, checks them with lintian, installs them on
# another one, runs their tests (debian/tests), and removes them again, which must leave no files.
#
#   scripts/test_package.sh
#   scripts/test_package.sh --built    installs, tests and removes the packages in build/packages, without building them
#
# The bare system, the downloaded packages and a compiler cache are kept in the user's cache (vxunpack/bookworm*, 1 GB);
# what a run installs is not. The packages remain in build/packages. Needs root, for chroot and mounts.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/debian_root.sh

require_root "$@"
begin=$SECONDS
step() { printf '%4d s  %s\n' $((SECONDS - begin)) "$*"; }

base=$root_cache/bookworm
mkdir -p "$root_cache"
exec 9>"$base.lock" # one run at a time
flock 9
make_root bookworm "$base"
mkdir -p build/packages "$base-archives/partial" "$base-ccache"
layers=$(mktemp -d "$base-layers.XXXXXX")
clean() {
  umount -l "$layers"/*/root 2>/dev/null || true
  rm -rf --one-file-system "$layers"
}
trap clean EXIT

scripts/release.sh --archive "$layers"
archive=$(echo "$layers"/*.tar.gz)

# fresh_root NAME: a bare system whose files are those of the base until they are changed, and the source archive in
# /source.
fresh_root() {
  local layer=$layers/$1
  root=$layer/root
  mkdir -p "$layer/changes" "$layer/work" "$root"
  # Nothing needs to survive a power failure: writing to disk is left to the system.
  local options=lowerdir=$base,upperdir=$layer/changes,workdir=$layer/work
  mount -t overlay overlay -o "$options,volatile" "$root" 2>/dev/null || mount -t overlay overlay -o "$options" "$root"
  mount_root "$root"
  mkdir -p "$root/source" "$root/packages" "$root/ccache"
  tar -xf "$archive" -C "$root/source" --strip-components=1
  mount --bind build/packages "$root/packages"
  mount --bind "$base-archives" "$root/var/cache/apt/archives"
  mount --bind "$base-ccache" "$root/ccache"
  echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"
  inside "$root" "apt-get update -qq"
}
# quietly NAME COMMANDS: prints the output of the commands only if they fail.
quietly() {
  inside "$root" "$2" >"$layers/log" 2>&1 || {
    tail -n 40 "$layers/log" >&2
    fail "$1 failed"
  }
}
apt="apt-get -y -qq --no-install-recommends"

if [ "${1:-}" != --built ]; then
  fresh_root build
  step "installing the build dependencies: LASzip from Debian 13, the others by debian/control"
  quietly "installing the build dependencies" "
    /source/scripts/dependencies.sh --laszip
    $apt build-dep /source
    $apt install lintian ccache"
  step "building $(basename "$archive")"
  cp "$archive" "$root/tmp/"
  find build/packages -mindepth 1 -delete
  inside "$root" "export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=/ccache CCACHE_DEPEND=yes
    /source/scripts/package.sh --archive /tmp/vxunpack-*.tar.gz /tmp/packages
    cp /tmp/packages/*.* /packages/"
fi

fresh_root use
step "installing the dependencies of the packages on another bare system"
mapfile -t packages < <(cd build/packages && ls ./*.deb | grep -v dbgsym)
depends=$(for package in "${packages[@]}"; do dpkg-deb -f "build/packages/$package" Depends; done |
  tr ',' '\n' | grep -v vxunpack | sort -u | paste -sd,)
quietly "installing the dependencies" "
  /source/scripts/dependencies.sh --laszip-library
  $apt satisfy '$depends'"
echo "        installed: $(inside "$root" "dpkg-query -W" | wc -l) packages"
quietly "installing the tools of the tests" "$apt install autopkgtest binutils cmake dpkg-dev g++ make pkg-config"
files() {
  inside "$root" "find / -xdev \( -path /tmp -o -path /var/tmp -o -path /var/log -o -path /var/lib/apt -o -path /var/lib/dpkg \
    -o -path /var/cache -o -path /source -o -path /packages -o -path /ccache \) -prune -o -print" | LC_ALL=C sort
}
files >"$layers/before"
step "installing ${packages[*]}"
quietly "installing the packages" "cd /packages && $apt install ${packages[*]}"
files >"$layers/installed"
echo "        $(comm -13 "$layers/before" "$layers/installed" | wc -l) files and folders"
inside "$root" "for file in \$(dpkg -L vxunpack-tools libvxunpack1 python3-vxl | grep -E '/bin/|\.so'); do
    if readelf -d \$file | grep -E 'R(UN)?PATH'; then
      echo \"in \$file\"
      exit 1
    fi
  done"
step "running the tests of the packages"
quietly "running the tests" "PYTHONDONTWRITEBYTECODE=1 autopkgtest --no-built-binaries /packages/vxunpack_*.dsc -- null"
grep -E ' (PASS|FAIL)' "$layers/log" | sort -u
step "removing the packages"
quietly "removing the packages" "$apt purge vxunpack-tools libvxunpack1 libvxunpack-dev python3-vxl"
files >"$layers/after"
diff "$layers/before" "$layers/after" || fail "the packages leave files or remove others'"
step "done: ${#packages[@]} packages were installed, tested and removed on Debian 12, and left no files"
