#!/usr/bin/env bash
# Runs a plan as a Slurm array on one node, which is a Debian 12 in a root directory of its own: a controller and a node
# with the packages of Debian. Needs a release build on Debian 12, and root for chroot. Skipped where Slurm does not start,
# for example in a container.
#
#   scripts/test_slurm.sh            does it
#   scripts/test_slurm.sh --root     only makes the root directory, if there is none
#
# The system is in the folder VX_SLURM_ROOT (default: vxunpack/slurm in the user's cache).
set -euo pipefail
cd "$(dirname "$0")/.."

. scripts/debian_root.sh

root=${VX_SLURM_ROOT:-$root_cache/slurm}
packages=(slurmctld slurmd slurm-client munge python3-numpy libtbb12 libdeflate0 libxxhash0 libgdal32 libgeotiff5)

require_root "$@"
make_root bookworm "$root"
mount_root "$root"
install_packages "$root" "${packages[@]}"
[ "${1:-}" != --root ] || exit 0
[ -d build/release/python/vxl ] || fail "there is no Python module in build/release"

# The build is at the same path there, since programs and libraries are found by it.
mkdir -p "$root$PWD"
mount --rbind /sys "$root/sys" # of which the node reads its cores
mount --bind . "$root$PWD"
mount -o remount,bind,ro "$root$PWD"

# Debian 12 has no package of LASzip.
mkdir -p "$root/usr/local/lib"
cp -L "$(ldconfig -p | awk '/liblaszip\.so\.8/ { print $NF; exit }')" "$root/usr/local/lib/liblaszip.so.8"
inside "$root" ldconfig

host=$(uname -n)
mkdir -p "$root/etc/slurm"
cat >"$root/etc/hosts" <<EOF
127.0.0.1 localhost $host
EOF
cat >"$root/etc/slurm/slurm.conf" <<EOF
ClusterName=test
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
AuthType=auth/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
ReturnToService=2
SlurmctldPidFile=/run/slurmctld.pid
SlurmdPidFile=/run/slurmd.pid
StateSaveLocation=/var/spool/slurmctld
SlurmdSpoolDir=/var/spool/slurmd
SlurmctldLogFile=/var/log/slurmctld.log
SlurmdLogFile=/var/log/slurmd.log
NodeName=$host NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES State=UP
EOF

# shellcheck disable=SC2317 # called by the trap
stop() {
  local file
  for file in slurmd.pid slurmctld.pid munge/munged.pid; do
    [ ! -e "$root/run/$file" ] || kill "$(cat "$root/run/$file")" 2>/dev/null || true
  done
}
trap stop EXIT
# A new state: jobs of an earlier run are forgotten.
inside "$root" "rm -rf /var/spool/slurmctld /var/spool/slurmd /run/*.pid /tmp/job
  install -d /var/spool/slurmctld /var/spool/slurmd
  install -d -o munge -g munge /run/munge /var/log/munge /var/lib/munge
  chown -R munge:munge /etc/munge
  runuser -u munge -- munged --force
  slurmctld
  slurmd" >"$root/start.log" 2>&1 || {
  cat "$root/start.log"
  echo "slurm: skipped, since it does not start in this environment"
  exit 0
}

inside "$root" "
  export PYTHONPATH='$PWD/build/release/python'
  for i in \$(seq 60); do sinfo -h -o %T | grep -qE 'idle|mixed' && break; sleep 1; done
  mkdir /tmp/job && cd /tmp/job
  python3 -W ignore -m vxl.jobs plan retile '$PWD/examples/survey.vxl' --out=tiles --tile-size=40
  python3 -m vxl.jobs slurm tiles/plan.jsonl --tasks=3 >array.sh
  timeout 300 sbatch --wait array.sh
  cat tiles/slurm-*.log
  python3 -m vxl.jobs finish tiles/plan.jsonl | tee report
  grep -qx 'points: 2400' report" ||
  { sed -n '/error/p' "$root/var/log/slurmctld.log" "$root/var/log/slurmd.log" | tail -n 20 >&2; fail "the array failed"; }
echo "slurm: an array of 3 tasks ran all units"
echo "1 passed, 0 failed"
