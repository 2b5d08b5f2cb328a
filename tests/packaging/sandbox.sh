#!/bin/sh
# Runs STEPS in a copy of this machine's root that takes every change and is thrown away, with its own
# processes, network (loopback only) and host name: sandbox.sh MODE STEPS FOLDER
#   plain    no service manager runs; what the steps leave behind in the root fails the test
#   systemd  systemd runs as process 1 and starts the steps as a unit
# FOLDER is seen as /test/packages. Exit status: that of the steps; 77 where no sandbox can be had.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"

# What dpkg, its triggers and a new user may leave behind.
known='^/(test|var/lib/dpkg|var/log/(dpkg|alternatives)\.log|var/cache|var/lib/systemd'
known="$known"'|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?|etc/\.pwd\.lock)(/|$)'

outside() {
  [ "$(id -u)" -eq 0 ] || skip "needs root"
  need unshare ip dpkg runuser setpriv timeout
  [ -d "$3/second" ] || skip "no packages were built"
  [ ! -e /usr/sbin/qov ] || skip "qov is installed on this machine"
  work=$(mktemp -d)
  group=qov-test.$$
  trap 'leave_groups; rm -rf "$work"' EXIT
  trap 'exit 1' INT TERM
  mkdir "$work/out" "$work/tree"
  [ "$1" = plain ] || enter_groups
  status=0
  timeout --foreground -s KILL 300 unshare --mount --pid --fork --kill-child --net --uts --ipc \
    --cgroup --propagation private "$here/sandbox.sh" inside "$work" "$@" </dev/null || status=$?
  [ ! -f "$work/out/said" ] || cat "$work/out/said"
  [ ! -f "$work/out/status" ] || status=$(cat "$work/out/status")
  exit "$status"
}

# A group of ours in every control group hierarchy; the new namespace takes it for the root.
enter_groups() {
  for top in /sys/fs/cgroup /sys/fs/cgroup/*; do
    if [ -L "$top" ] || [ ! -f "$top/cgroup.procs" ]; then continue; fi
    mkdir "$top/$group" 2>/dev/null || skip "no control groups here"
    for set in cpuset.cpus cpuset.mems; do
      [ ! -f "$top/$set" ] || cat "$top/$set" >"$top/$group/$set"
    done
    echo $$ >"$top/$group/cgroup.procs"
  done
}

leave_groups() {
  for top in /sys/fs/cgroup /sys/fs/cgroup/*; do
    if [ -L "$top" ] || [ ! -d "$top/$group" ]; then continue; fi
    echo $$ >"$top/cgroup.procs"
    find "$top/$group" -depth -type d -exec rmdir {} \; 2>/dev/null || true
  done
}

inside() {
  out=$1/out tree=$1/tree mode=$2 steps=$3 folder=$4
  mount -t tmpfs tmpfs "$tree"
  mkdir "$tree/upper" "$tree/work" "$tree/root"
  root=$tree/root
  mount -t overlay overlay -o "lowerdir=/,upperdir=$tree/upper,workdir=$tree/work" "$root" ||
    skip "no overlay file system here"
  mkdir "$root/test" "$root/test/old"
  cp "$here"/*.sh "$root/test"
  mkdir "$root/test/packages"
  cp -r "$folder/first" "$folder/second" "$root/test/packages"
  mkdir "$root/test/out"
  mount --bind "$out" "$root/test/out"
  mount -t proc proc "$root/proc"
  mount -t sysfs sysfs "$root/sys"
  mount -t tmpfs -o mode=755 tmpfs "$root/run"
  mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
  fill_dev
  ip link set lo up
  "run_$mode"
}

fill_dev() {
  mount -t tmpfs -o mode=755 tmpfs "$root/dev"
  for device in null zero full random urandom tty; do
    touch "$root/dev/$device"
    mount --bind "/dev/$device" "$root/dev/$device"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
  ln -s pts/ptmx "$root/dev/ptmx"
  ln -s /proc/self/fd "$root/dev/fd"
}

run_plain() {
  chroot "$root" /bin/sh "/test/$steps"
  left=$(cd "$tree/upper" && find . -mindepth 1 | sed 's/^\.//' | grep -Ev "$known" |
    while read -r path; do
      if [ ! -d "$tree/upper$path" ] || [ ! -d "$path" ]; then echo "$path"; fi
    done)
  [ -z "$left" ] || fail "left behind: $left"
}

run_systemd() {
  rm -f "$root/usr/sbin/policy-rc.d" # where a container forbids to start services
  groups=$root/sys/fs/cgroup
  mount -t tmpfs -o mode=755 tmpfs "$groups"
  while IFS=: read -r _ names _; do
    if [ -n "$names" ]; then
      mkdir "$groups/${names#name=}"
      mount -t cgroup -o "$names" cgroup "$groups/${names#name=}"
    elif [ -f /sys/fs/cgroup/cgroup.procs ]; then
      mount -t cgroup2 cgroup2 "$groups"
    else
      mkdir "$groups/unified"
      mount -t cgroup2 cgroup2 "$groups/unified"
    fi
  done </proc/self/cgroup
  cat >"$root/etc/systemd/system/qov-test.service" <<UNIT
[Unit]
SuccessAction=exit-force
FailureAction=exit-force
[Service]
Type=oneshot
ExecStart=/bin/sh /test/$steps
ExecStopPost=/bin/sh -c 'echo \$EXIT_STATUS >/test/out/status'
StandardOutput=file:/test/out/said
StandardError=inherit
UNIT
  echo 1 >"$out/status"
  cd "$root"
  pivot_root . test/old
  umount -l /test/old
  exec env -i container=qov-test PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    /lib/systemd/systemd --system --unit=qov-test.service --show-status=no
}

case $1 in
  inside) shift && inside "$@" ;;
  *) outside "$@" ;;
esac
