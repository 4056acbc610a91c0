# Root directories of other Debian releases, for scripts that source this file. They are made with debootstrap from the
# mirror that this machine uses, and kept in the user's cache. Needs root, for chroot and mounts.
#
#   require_root "$@"              ends the script unless root runs it; restarts it in a mount namespace of its own
#   make_root SUITE DIRECTORY      makes a minimal root directory, unless there is one
#   mount_root DIRECTORY           gives it /proc, /dev and the network settings of this machine
#   inside DIRECTORY COMMANDS      runs bash commands in it
#   install_packages DIRECTORY PACKAGE...   installs them in it, unless all are installed

root_cache=${XDG_CACHE_HOME:-$HOME/.cache}/vxunpack

fail() {
  echo "$(basename "$0" .sh): $*" >&2
  exit 1
}

require_root() {
  [ "$(id -u)" -eq 0 ] || fail "needs root, for debootstrap and chroot"
  # Mounts are private to this run and end with it.
  if [ "${VX_IN_NAMESPACE:-}" != yes ]; then
    unshare --mount true || fail "this environment does not permit mounts"
    VX_IN_NAMESPACE=yes exec unshare --mount --propagation private "scripts/$(basename "$0")" "$@"
  fi
}

make_root() {
  local suite=$1 root=$2 mirror log
  [ ! -x "$root/usr/bin/apt-get" ] || return 0
  echo "making a root directory of Debian $suite in $root"
  command -v debootstrap >/dev/null || { apt-get update -qq; apt-get install -y -qq --no-install-recommends debootstrap >/dev/null; }
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | grep -v security | head -n 1)
  [ -n "$mirror" ] || fail "apt knows no mirror"
  log=$(mktemp)
  # Under another name until it is complete, so that an incomplete one is never used.
  rm -rf "$root.new"
  mkdir -p "$root.new"
  chmod 755 "$root.new"
  debootstrap --variant=minbase --include=ca-certificates "$suite" "$root.new" "$mirror" >"$log" 2>&1 ||
    { tail -n 5 "$log" >&2; fail "debootstrap failed; does the mirror have Debian $suite?"; }
  rm -f "$log"
  mv "$root.new" "$root"
}

mount_root() {
  local root=$1 settings
  mount --bind /proc "$root/proc"
  mount --rbind /dev "$root/dev"
  cp /etc/resolv.conf "$root/etc/"
  for settings in /etc/apt/apt.conf.d/99*; do [ ! -e "$settings" ] || cp "$settings" "$root/etc/apt/apt.conf.d/"; done
}

inside() {
  chroot "$1" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    bash -euo pipefail -c "$2" </dev/null
}

install_packages() {
  local root=$1
  shift
  if inside "$root" "dpkg-query -W $*" >/dev/null 2>&1; then return 0; fi
  echo "installing: $*"
  inside "$root" "apt-get update -qq && apt-get install -y -qq --no-install-recommends $* >/dev/null" ||
    fail "the packages could not be installed"
}
