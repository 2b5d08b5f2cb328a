#!/bin/sh
# What is shipped, as files and as packages: package_test.sh files|build|install FOLDER
#   files    scripts, man pages, units and samples are sound
#   build    two builds in different places are the same, byte for byte; FOLDER gets first/ and a second version
#            in second/, and keeps build/, so that the next run builds little
#   install  both from installation to purge, in a copy of this machine's root that is thrown away, with its own
#            processes, network and host name: without a service manager, then under a systemd of its own
# Exit status 77: left out, as something is missing here.
set -eu
mode=$1 folder=${2-}
here=$(cd "$(dirname "$0")" && pwd)
config=/etc/qov/qov.cfg

skip() { echo "left out: $*" && exit 77; }
fail() { echo "FAILED: $*" >&2 && exit 1; }
step() { echo "== $*"; }
need() { for tool; do command -v "$tool" >/dev/null || skip "no $tool here"; done; }
# is TEXT COMMAND...: the command prints the text.
is() {
  text=$1 && shift
  said=$("$@" 2>&1) || true
  [ "$said" = "$text" ] || fail "$*: $said, not $text"
}
# expect STATUS TEXT COMMAND...: the command ends with this status, and its output holds the text.
expect() {
  wanted=$1 text=$2 status=0 && shift 2
  said=$("$@" 2>&1) || status=$?
  case $status:$said in "$wanted:"*"$text"*) ;; *) fail "$*: $status, not $wanted \"$text\": $said" ;; esac
}
# until_true COMMAND...: waits, 20 seconds at most, until the command succeeds.
until_true() {
  tries=200
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || fail "waited in vain for: $*"
    sleep 0.1
  done
}
release_of() { sed -n '1s/^qov (\(.*\)).*/\1/p' "$1/packaging/debian/changelog"; }

files() {
  cd "$here/../.."
  need shellcheck mandoc systemd-analyze
  scripts=$(grep -rlE '^#! ?/(usr/bin/env (ba)?sh|bin/(ba)?sh)' --exclude-dir='build*' \
    .ci tools packaging tests bench fuzz) || true
  [ "$(echo "$scripts" | wc -l)" -gt 5 ] || fail "scripts not found: $scripts"
  # shellcheck disable=SC2086  # a list of names
  shellcheck $scripts
  grep -q "^set(QOV_RELEASE \"$(release_of .)\"" cmake/package.cmake || fail "two versions"
  mandoc -T lint -W warning packaging/man/*.[1-8]
  sed -n 's/^\([a-z]*\)=.*/\1/p' packaging/qov.cfg | while read -r key; do
    grep -q "Cm $key\>" packaging/man/qov.cfg.5 || fail "qov.cfg(5) lacks $key"
  done
  grep -oE '\{"[A-Za-z0-9-]+"' src/agent/dispatch.cpp | tr -d '{"' | while read -r command; do
    grep -q "\<$command\>" packaging/man/qov-protocol.7 || fail "qov-protocol(7) lacks $command"
  done
  units=$(mktemp -d)
  trap 'rm -rf "$units"' EXIT
  for unit in packaging/qov.service packaging/qov-watch.service; do
    expect 0 "" systemd-analyze security --offline=true --threshold=25 "$unit"
  done
  for dropin in packaging/examples/agent/dropins/*.conf; do
    mkdir -p "$units/qov.service.d"
    cp packaging/*.service packaging/*.timer "$units"
    cp "$dropin" "$units/qov.service.d/test.conf"
    # The programs are installed under names that do not exist here.
    sed -i 's,=\(+\?\)/usr/[a-z/]*/\(qov\|qovctl\|watch\) ,=\1/bin/true ,' "$units"/qov*.* \
      "$units/qov.service.d/test.conf"
    is "" systemd-analyze verify --man=no "$units"/qov*.service "$units"/qov*.timer
  done
  if [ "$(id -u)" -eq 0 ] && command -v nft; then nft -c -f packaging/examples/agent/qov.nft; fi
}

# build_in SOURCE BUILD RELEASE: leaves the packages in BUILD.
build_in() {
  { cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQOV_TESTS=OFF \
    "-DQOV_RELEASE=$3" && nice cmake --build "$2" --target package; } >"$work/log" 2>&1 ||
    { tail -n 50 "$work/log" && fail "building in $2"; }
}

build() {
  need dpkg-deb dpkg-shlibdeps cmake ninja gzip lintian
  root=$here/../.. release=$(release_of "$here/../..") work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  rm -rf "$folder/first" "$folder/second" "$folder"/build/*.deb
  mkdir -p "$folder/first" "$folder/second" "$work/to here"
  export SOURCE_DATE_EPOCH=1795521600
  unset DESTDIR
  step "a build of $release, and one elsewhere"
  (umask 022 && TZ=UTC LC_ALL=C build_in "$root" "$folder/build" "$release")
  cp "$folder"/build/*.deb "$folder/first"
  (cd "$root" && cp -r CMakeLists.txt LICENSE SECURITY.md cmake docs fuzz packaging src "$work/to here")
  find "$work/to here" -exec touch -d '2001-02-03' {} +
  (umask 077 && TZ=Asia/Tokyo LC_ALL=C.UTF-8 build_in "$work/to here" "$work/to here/b" "$release")
  for package in "$folder"/first/*.deb; do
    cmp "$package" "$work/to here/b/${package##*/}" || fail "two builds of ${package##*/} differ"
  done
  lintian --fail-on error,warning --allow-root "$folder"/first/*.deb
  step "a second version"
  build_in "$root" "$folder/build" 1.29k
  cp "$folder"/build/*1.29k*.deb "$folder/second"
}

install() {
  [ "$(id -u)" -eq 0 ] || skip "needs root"
  need unshare ip dpkg runuser timeout logrotate /lib/systemd/systemd
  [ -d "$folder/second" ] || skip "no packages were built"
  [ ! -e /usr/sbin/qov ] || skip "qov is installed on this machine"
  groups=/sys/fs/cgroup work=$(mktemp -d)
  [ ! -d $groups/systemd ] || groups=$groups/systemd
  trap 'echo $$ >$groups/cgroup.procs; find $groups/qov-test.$$ -depth -type d -exec rmdir {} \; 2>/dev/null
    rm -rf "$work"' EXIT
  trap 'exit 1' INT TERM
  # The new namespace takes this control group for the root.
  mkdir "$groups/qov-test.$$" 2>/dev/null || skip "no control groups here"
  echo $$ >"$groups/qov-test.$$/cgroup.procs"
  mkdir "$work/out" "$work/tree"
  status=0
  timeout --foreground -s KILL 300 unshare --mount --pid --fork --kill-child --net --uts --ipc --cgroup \
    --propagation private "$here/package_test.sh" inside "$folder" "$work" </dev/null || status=$?
  [ ! -f "$work/out/said" ] || cat "$work/out/said"
  [ ! -f "$work/out/status" ] || status=$(cat "$work/out/status")
  exit "$status"
}

# inside FOLDER WORK: the sandbox, with a copy of FOLDER as /test.
inside() {
  tree=$3/tree root=$1/tree/root
  mount -t tmpfs tmpfs "$tree"
  mkdir "$tree/upper" "$tree/work" "$root"
  mount -t overlay overlay -o "lowerdir=/,upperdir=$tree/upper,workdir=$tree/work" "$root" ||
    skip "no overlay file system here"
  mkdir "$root/test" "$root/test/old" "$root/test/out"
  cp -r "$here/package_test.sh" "$folder/first" "$folder/second" "$root/test"
  mount --bind "$3/out" "$root/test/out"
  mount -t proc proc "$root/proc"
  mount -t sysfs sysfs "$root/sys"
  for place in run tmp dev; do mount -t tmpfs -o mode=1777 tmpfs "$root/$place"; done
  for device in null zero full random urandom tty; do
    touch "$root/dev/$device"
    mount --bind "/dev/$device" "$root/dev/$device"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
  ln -s pts/ptmx "$root/dev/ptmx"
  ln -s /proc/self/fd "$root/dev/fd"
  ip link set lo up
  # shellcheck disable=SC2016  # for the shell inside
  expect 0 "" chroot "$root" sh -c 'dpkg -i /test/first/*.deb && dpkg -P qov qov-plugin'
  rm -f "$root/usr/sbin/policy-rc.d" # where a container forbids to start services
  if [ -d /sys/fs/cgroup/systemd ]; then
    mount -t tmpfs -o mode=755 tmpfs "$root/sys/fs/cgroup"
    mkdir "$root/sys/fs/cgroup/systemd"
    mount -t cgroup -o none,name=systemd cgroup "$root/sys/fs/cgroup/systemd"
  else
    mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
  fi
  printf '%s\n' "[Unit]" SuccessAction=exit-force FailureAction=exit-force "[Service]" Type=oneshot \
    "ExecStart=/test/package_test.sh managed" StandardOutput=file:/test/out/said StandardError=inherit \
    "ExecStopPost=/bin/sh -c 'echo \$EXIT_STATUS >/test/out/status'" \
    >"$root/etc/systemd/system/qov-test.service"
  echo 1 >"$root/test/out/status"
  cd "$root"
  pivot_root . test/old
  umount -l /test/old
  exec env -i container=qov-test PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    /lib/systemd/systemd --system --unit=qov-test.service --show-status=no
}

ctl() { qovctl --config $config --timeout 20 "$@"; }
main_pid() { systemctl show -P MainPID qov.service; }
status_of() { sed -n "s/^$1:[[:space:]]*//p" "/proc/$(main_pid)/status"; }
tells() { ctl info 2>/dev/null | grep -q -- "$1"; }
other_pid() { [ "$(main_pid)" != "$pid" ] && ctl info; }
is_stopped() { [ "$(systemctl is-active qov.service qov-watch.timer | uniq)" = inactive ]; }
# set_key KEY VALUE: changes a line of the configuration file, as an administrator would.
set_key() { sed -i "s,^$1=.*,$1=$2," $config; }

# Checks that the shipped file enables, and those that it turns off.
ask_every_check() {
  mkdir /tmp/asked /home/somebody
  for file in /tmp/asked/one /home/somebody/file; do echo "some words" >$file; done
  while read -r wanted text command; do
    # shellcheck disable=SC2086  # words of a command line
    expect "$wanted" "${text#-}" ctl $command </dev/null
  done <<CHECKS
0 tests=1111111111100 raw GetInfo
0 - tcp 127.0.0.1 $(sed -n 's/^port=//p' $config)
0 - udp 127.0.0.1 9 --send x
0 - disk /
0 $(df -B1 --output=size /tmp | tail -n 1 | tr -d ' ') raw TEST-UNC /tmp
0 - folder-size /usr/share/qov
0 1 count-files /tmp/asked
0 11 file /home/somebody/file
0 - compare /tmp/asked/one /tmp/asked/one --contents
0 - text-log /tmp/asked/one --find words
0 1 process systemd
0 qov processes
0 - cpu
0 qov.cfg files /usr/share/qov
7 - external /bin/true
7 - execute /bin/true
7 - syslog 127.0.0.1 text
CHECKS
}

managed() {
  umask 022
  step "installation starts the agent, shut in as its unit says, and its watch"
  expect 0 "" dpkg -i /test/first/qov-plugin_*.deb /test/first/qov_*.deb
  until_true ctl info
  for want in "qov:qov 600 $config" "root:qov 770 /etc/qov" "qov:qov 700 /var/lib/qov" \
    "qov:qov 700 /var/lib/qov/tmp" "qov:qov 750 /var/log/qov" "qov:qov 555 /proc/$(main_pid)"; do
    is "$want" stat -c '%U:%G %a %n' "${want##* }"
  done
  expect 0 "" grep -xE 'password=[0-9a-f]{32}' $config
  is "" sh -c "sed 's/^password=.*/password=/' $config | cmp - /usr/share/qov/qov.cfg"
  expect 0 "" runuser -u qov -- qovctl check-config --strict $config
  is "" dpkg --verify qov qov-plugin
  expect 0 "" systemctl is-enabled qov.service qov-watch.timer
  is 1 status_of NoNewPrivs
  is 0000000000000000 status_of CapBnd
  ask_every_check

  step "a change by a server, reloads, logs rotated under it"
  pid=$(main_pid)
  expect 0 "" ctl set "Comment=changed from afar"
  is "qov:qov 600" stat -c '%U:%G %a' $config
  expect 0 "" grep '^comment=changed from afar' $config
  is "" ls /var/lib/qov/tmp
  set_key comment "read again"
  set_key logsuccess 1
  expect 0 "" systemctl reload qov
  until_true tells "read again"
  expect 0 "" logrotate -f -s /tmp/rotated /etc/logrotate.d/qov
  expect 0 "" test -s /var/log/qov/ok.log.1
  until_true tells "read again"
  is "qov:qov 600" stat -c '%U:%G %a' /var/log/qov/ok.log
  set_key port ""
  expect 1 "" systemctl reload qov
  expect 0 "" ctl -p 1055 info
  set_key port 1055

  step "restart from within keeps the process id, a crash brings another, the watch ends a hang"
  expect 0 "" ctl restart
  sleep 2
  until_true ctl info
  is "$pid" main_pid
  kill -KILL "$pid"
  until_true other_pid
  expect 0 "" systemctl start qov-watch.service
  mkdir /etc/systemd/system/qov-watch.service.d
  printf '[Service]\nExecStart=\nExecStart=/usr/libexec/qov/watch %s 1\n' $config \
    >/etc/systemd/system/qov-watch.service.d/test.conf
  systemctl daemon-reload
  pid=$(main_pid)
  kill -STOP "$pid"
  expect 1 "" systemctl start qov-watch.service
  until_true other_pid

  step "upgrade: a file that cannot be used keeps the old agent, and no file is changed"
  pid=$(main_pid)
  for port in "" 1055; do
    set_key port "$port"
    before=$(sha256sum $config)
    expect 0 "${port:-not restarted}" dpkg -i /test/second/*.deb
    [ -n "$port" ] || is "$pid" main_pid
    is "$before" sha256sum $config
  done
  until_true other_pid
  until_true tells 1.29k

  step "an agent that was stopped stays so"
  expect 0 "" ctl quit
  until_true is_stopped
  expect 69 "" /usr/libexec/qov/watch $config 1
  expect 0 "" systemctl start qov
  expect 0 "" systemctl is-active qov-watch.timer

  step "drop-ins"
  mkdir /etc/systemd/system/qov.service.d
  mkdir -m 0700 /root-only
  set_key pidfile /run/qov/qov.pid
  while read -r dropin wanted command; do
    cp "/usr/share/doc/qov/examples/dropins/$dropin.conf" /etc/systemd/system/qov.service.d/test.conf
    systemctl daemon-reload
    systemctl reset-failed
    expect 0 "" systemctl restart qov
    until_true ctl info
    expect "${wanted%:*}" "${wanted#*:}" sh -c "pid=$(main_pid); $command" </dev/null
  done <<DROPINS
strict 4: qovctl --config $config folder-size /root-only
allow-sudo 0:0 sed -n 's/^NoNewPrivs://p' /proc/\$pid/status
read-all 0: qovctl --config $config folder-size /root-only
root 0:uid=0 stat -c uid=%u /proc/\$pid
forking 0: grep -x \$pid /run/qov/qov.pid
DROPINS

  step "a removal keeps the file, a purge leaves nothing"
  before=$(sha256sum $config)
  expect 0 "" dpkg -r qov
  expect 3 "" systemctl is-active qov.service
  expect 1 "" pgrep -x qov
  expect 0 "" dpkg -i /test/second/qov_*.deb
  is "$before" sha256sum $config
  rm -r /etc/systemd/system/qov*.service.d
  expect 0 "" dpkg -P qov qov-plugin
  expect 1 "" pgrep -x qov
  rm /etc/systemd/system/qov-test.service
  is "" find /etc /usr /var /run -name '*qov*'
  is "" find /etc /usr /var /run -user qov
}

"$mode" "$@"
