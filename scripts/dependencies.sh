#!/usr/bin/env bash
# Installs the packages of Debian or Ubuntu that building and testing need, unless all are installed.
#
#   scripts/dependencies.sh          packages for a build and its tests
#   scripts/dependencies.sh --all    and those for checks and benchmarks
#   scripts/dependencies.sh --web    those for the decoder and the viewer of browsers, and for their tests
#   scripts/dependencies.sh --laszip          LASzip only, for building packages
#   scripts/dependencies.sh --laszip-library  the library of LASzip only, for installing packages
set -euo pipefail

packages=(g++ cmake ninja-build ccache libtbb-dev zlib1g-dev libdeflate-dev libxxhash-dev libgdal-dev libgeotiff-dev
  libcurl4-openssl-dev libpng-dev nlohmann-json3-dev libgtest-dev)
laszip=(liblaszip8 liblaszip-api8 liblaszip-dev)
uses_nginx=false
case ${1:-} in
  --all)
    uses_nginx=true
    packages+=(libbenchmark-dev clang-format-14 clang-tidy-14 clang-14 libclang-rt-14-dev llvm-14
      pkg-config python3 debootstrap python3-dev pybind11-dev
      python3-numpy python3-pandas python3-dask python3-distributed python3-pytest python3-setuptools python3-venv
      python3-wheel)
    ;;
  --web)
    packages=(cmake ninja-build libxxhash-dev emscripten chromium)
    # Node.js is often installed from elsewhere, in a newer version.
    command -v node >/dev/null || packages+=(nodejs)
    command -v npm >/dev/null || packages+=(npm)
    laszip=()
    uses_nginx=true
    ;;
  --laszip) packages=() ;;
  --laszip-library)
    packages=()
    laszip=(liblaszip8)
    ;;
esac

is_installed() { dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null | grep -qx installed; }
missing=()
for package in "${packages[@]}"; do is_installed "$package" || missing+=("$package"); done
has_laszip() { [ ${#laszip[@]} -eq 0 ] || is_installed "${laszip[-1]}"; }
# Tests use the program nginx. To install its package would start a server, so the program is only unpacked.
nginx=${XDG_CACHE_HOME:-$HOME/.cache}/vxunpack/nginx
needs_nginx() { $uses_nginx && [ ! -x "$nginx/usr/sbin/nginx" ] && [ ! -x /usr/sbin/nginx ]; }
if [ ${#missing[@]} -eq 0 ] && has_laszip && ! needs_nginx; then exit 0; fi

run=()
[ "$(id -u)" -eq 0 ] || run=(sudo)
export DEBIAN_FRONTEND=noninteractive
# apt and the packages' scripts write to both streams even when all is well: shown only if something fails.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Another run may hold apt's lock.
install() {
  "${run[@]}" apt-get install -y -qq --no-install-recommends -o DPkg::Lock::Timeout=600 "$@" >"$log" 2>&1 ||
    { cat "$log" >&2; exit 1; }
}

# Debian 12 is the only release without LASzip; the packages of the next release also work on it. They are downloaded
# from the mirror that the machine uses, with separate lists and cache, so that no other package is taken from there.
install_laszip_of_next_release() (
  directory=$(mktemp -d)
  trap 'rm -rf "$directory"' EXIT
  chmod 755 "$directory" # apt downloads as another user
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' | head -n 1)
  [ -n "$mirror" ] || mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -n 1)
  mkdir -p "$directory/lists/partial" "$directory/cache/archives/partial"
  echo "deb $mirror trixie main" >"$directory/sources.list"
  apt=("${run[@]}" apt-get -qq -o "Dir::Etc::SourceList=$directory/sources.list" -o Dir::Etc::SourceParts=/dev/null
    -o "Dir::State::Lists=$directory/lists" -o "Dir::Cache=$directory/cache" -o APT::Sandbox::User=root)
  "${apt[@]}" update
  cd "$directory"
  "${apt[@]}" download "${laszip[@]}"
  install ./*.deb
)

"${run[@]}" apt-get update -qq
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  install "${missing[@]}"
fi
if needs_nginx; then
  (
    directory=$(mktemp -d)
    trap 'rm -rf "$directory"' EXIT
    cd "$directory"
    apt-get download -qq -o APT::Sandbox::User=root nginx >/dev/null
    mkdir -p "$nginx"
    dpkg-deb --extract nginx_*.deb "$nginx"
  )
fi
if ! has_laszip; then
  if apt-cache show "${laszip[-1]}" >/dev/null 2>&1; then
    echo "installing: ${laszip[-1]}"
    install "${laszip[-1]}"
  else
    echo "installing: ${laszip[*]} from Debian 13, since Debian 12 has no LASzip"
    install_laszip_of_next_release
  fi
fi
