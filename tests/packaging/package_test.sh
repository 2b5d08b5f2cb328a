#!/bin/sh
# What is shipped, as files and as packages: package_test.sh files|build|install|service FOLDER
#   build    this version's packages in FOLDER/first, the same byte for byte from another place and
#            time, and another version's in FOLDER/second; FOLDER/build is kept for the next run
#   install, service   in and out without a service manager; the shipped units under a systemd: in
#            a copy of this machine's root that takes every change and is thrown away, with its own
#            processes, network (loopback only) and host name. Exit status 77: left out.
set -eux
mode=$1 folder=$2
source=$(cd "$(dirname "$0")/../.." && pwd)
config=/etc/qov/qov.cfg

skip() { echo "left out: $*" && exit 77; }
need() { for tool; do command -v "$tool" || skip "no $tool here"; done; }
# gives STATUS COMMAND...: the command ends with this status.
gives() {
  wanted=$1 status=0 && shift
  "$@" || status=$?
  [ "$status" -eq "$wanted" ]
}
# until_true COMMAND...: waits, 20 seconds at most, until the command succeeds.
until_true() {
  for _ in $(seq 200); do "$@" && return; sleep 0.1; done
  false
}
release() { sed -n '1s/^qov (\(.*\)).*/\1/p' "$source/packaging/debian/changelog"; }

test_files() {
  need shellcheck mandoc systemd-analyze
  cd "$source"
  grep -rlE '^#!.*\<(ba)?sh\>' .ci tools packaging tests bench fuzz | xargs shellcheck
  grep "^set(QOV_RELEASE \"$(release)\"" cmake/package.cmake
  mandoc -T lint -W warning packaging/man/*.[1-8]
  keys=$(grep -oE '^[a-z]+=' packaging/qov.cfg)
  for key in $keys; do grep -q "Cm ${key%=}\>" packaging/man/qov.cfg.5; done
  commands=$(grep -oE '\{"[A-Za-z0-9-]+' src/agent/dispatch.cpp)
  for command in $commands; do grep -q "\<${command#??}\>" packaging/man/qov-protocol.7; done
  systemd-analyze security --offline=true --threshold=25 packaging/qov.service \
    packaging/qov-watch.service >/dev/null
  if [ "$(id -u)" -eq 0 ] && command -v nft; then nft -c -f packaging/examples/agent/qov.nft; fi
}

# build_in SOURCE BUILD RELEASE [SETTING]: leaves the packages in BUILD.
build_in() {
  cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQOV_TESTS=OFF \
    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" "-DQOV_RELEASE=$3" "-D${4:-UNUSED=}"
  nice cmake --build "$2" --target package
}

# commands BUILD SOURCE: how each file is compiled, without the names of the two folders.
commands() { tr -d '\\"' <"$1/compile_commands.json" | sed "s,$1,build,g; s,$2,source,g"; }

# The compiler of the build elsewhere: compiles the core and what is first in each program. The other
# files are the same, compiled in the same way: the objects are taken from FOLDER.
test_compile() {
  set +x && shift 2
  for word; do object=${option-} option=${file-} file=$word; done # ... -o object -c file
  case $file in */core/* | */main.cpp | */status.cpp) exec "$@" ;; esac
  cp "$folder/build/$object" "$object"
}

test_build() {
  need dpkg-deb dpkg-shlibdeps cmake ninja gzip lintian
  cd "$source"
  export SOURCE_DATE_EPOCH=1795521600
  elsewhere="$folder/to here"
  rm -rf "$folder/first" "$folder/second" "$folder"/build/*.deb "$elsewhere"
  mkdir -p "$folder/first" "$folder/second" "$elsewhere"
  (umask 022 && TZ=UTC LC_ALL=C build_in "$source" "$folder/build" "$(release)")
  cp "$folder"/build/*.deb "$folder/first"
  cp -r CMakeLists.txt LICENSE SECURITY.md cmake docs fuzz packaging src "$elsewhere"
  find "$elsewhere" -exec touch -d '2001-02-03' {} +
  (umask 077 && TZ=Asia/Tokyo LC_ALL=C.UTF-8 build_in "$elsewhere" "$elsewhere/b" "$(release)" \
    "CMAKE_CXX_COMPILER_LAUNCHER=$0;compile;$folder")
  commands "$folder/build" "$source" >"$elsewhere/commands"
  commands "$elsewhere/b" "$elsewhere" | diff "$elsewhere/commands" -
  for package in "$folder"/first/*.deb; do cmp "$package" "$elsewhere/b/${package##*/}"; done
  lintian --fail-on error,warning --allow-root "$folder"/first/*.deb
  build_in "$source" "$folder/build" 1.29k
  cp "$folder"/build/*1.29k*.deb "$folder/second"
}

test_install() { sandbox run_plain; }
test_service() {
  need /lib/systemd/systemd logrotate
  # The new namespace takes this control group for the root.
  group=$(findmnt -nf -o TARGET -t cgroup2)/qov-test.$$ || skip "no control groups here"
  mkdir "$group"
  echo $$ >"$group/cgroup.procs"
  sandbox run_systemd
}

leave_sandbox() {
  [ ! -f "${work-}/said" ] || cat "$work/said"
  rm -rf "${work-}"
  [ -n "${group-}" ] || return 0
  echo $$ >"$group/../cgroup.procs"
  find "$group" -depth -type d -exec rmdir {} \; || true
}

# sandbox RUN: enters the copy of the root and calls RUN there.
sandbox() {
  trap leave_sandbox EXIT
  need unshare ip dpkg timeout
  unshare --mount true || skip "needs root"
  [ -d "$folder/second" ] || skip "no packages were built"
  work=$(mktemp -d)
  timeout --foreground -s KILL 300 unshare --mount --pid --fork --kill-child --net --uts --ipc \
    --cgroup --propagation private "$0" inside "$folder" "$work" "$1" </dev/null
}

test_inside() {
  tree=$3/tree root=$3/tree/root
  mkdir "$tree"
  mount -t tmpfs tmpfs "$tree"
  mkdir "$root" "$tree/upper" "$tree/work" "$tree/upper-dev" "$tree/work-dev"
  for part in "" -dev; do
    mount -t overlay overlay "$root/${part#-}" -o \
      "lowerdir=/${part#-},upperdir=$tree/upper$part,workdir=$tree/work$part" || skip "no overlays"
  done
  mkdir -p "$root/test/old" "$root/test/out"
  cp -r "$0" "$folder/first" "$folder/second" "$root/test"
  mount --bind "$3" "$root/test/out"
  mount -t proc proc "$root/proc"
  mount -t sysfs sysfs "$root/sys"
  mount -t tmpfs -o mode=755 tmpfs "$root/run"
  mount -t tmpfs tmpfs "$root/tmp"
  ip link set lo up
  "$4"
}

run_plain() {
  chroot "$root" sh -c \
    'dpkg -i /test/first/*.deb && dpkg -i /test/second/*.deb && dpkg -P qov qov-plugin'
  # What dpkg, its triggers and a new user may leave behind.
  known='^/(test|var/lib/dpkg|var/log/(dpkg|alternatives)\.log|var/cache|var/lib/systemd'
  known="$known"'|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?|etc/\.pwd\.lock)(/|$)'
  cd "$tree/upper"
  find . -mindepth 1 ! \( -type d -exec test -d /{} \; \) -printf '/%P\n' |
    gives 1 grep -Ev "$known"
}

run_systemd() {
  rm -f "$root/usr/sbin/policy-rc.d" # where a container forbids to start services
  mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
  printf '%s\n' "[Unit]" SuccessAction=exit-force FailureAction=exit-force "[Service]" \
    Type=oneshot "ExecStart=/test/package_test.sh managed /test" StandardError=inherit \
    StandardOutput=file:/test/out/said >"$root/etc/systemd/system/qov-test.service"
  cd "$root"
  pivot_root . test/old
  umount -l /test/old
  exec env -i container=qov-test PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    /lib/systemd/systemd --system --unit=qov-test.service --show-status=no
}

ctl() { qovctl --config $config --timeout 20 "$@"; }
tells() { ctl info | grep -- "$1"; }
set_key() { sed -i "s,^$1=.*,$1=$2," $config; }
main_pid() { systemctl show -P MainPID qov.service; }
other_pid() { [ "$(main_pid)" != "$pid" ] && ctl info; }

test_managed() {
  cd /etc/systemd/system
  # An installation starts the agent, shut in as its unit says, and its watch.
  dpkg -i /test/first/qov-plugin_*.deb /test/first/qov_*.deb
  until_true ctl info
  pid=$(main_pid)
  for want in "qov:qov 600 $config" "root:qov 770 /etc/qov" "qov:qov 700 /var/lib/qov" \
    "qov:qov 700 /var/lib/qov/tmp" "qov:qov 750 /var/log/qov" "qov:qov 555 /proc/$pid"; do
    [ "$(stat -c '%U:%G %a %n' "${want##* }")" = "$want" ]
  done
  grep -xE 'password=[0-9a-f]{32}' $config
  sed 's/^password=.*/password=/' $config | cmp - /usr/share/qov/qov.cfg
  systemctl is-enabled qov.service qov-watch.timer
  [ "$(grep -cE '^(NoNewPrivs:\s1|CapBnd:\s0*)$' "/proc/$pid/status")" = 2 ]

  # It carries out the checks that the shipped file turns on, and sees what others see.
  mkdir /home/somebody
  echo "some words" >/home/somebody/file
  while read -r text command; do
    # shellcheck disable=SC2086  # words of a command line
    ctl $command </dev/null | grep "$text"
  done <<CHECKS
tests=1111111111100 raw GetInfo
time udp 127.0.0.1 9 --send x
$(df -B1 --output=size /tmp | tail -n 1 | tr -d ' ') raw TEST-UNC /tmp
match text-log /home/somebody/file --find words
count..1 process systemd
qov processes
% cpu
CHECKS

  # A change by a server; reloads, of a bad file too; logs are rotated under the agent.
  ctl set "Comment=changed from afar"
  grep '^comment=changed from afar' $config
  set_key comment "read again"
  set_key logsuccess 1
  systemctl reload qov
  until_true tells "read again"
  logrotate -f -s /tmp/rotated /etc/logrotate.d/qov
  test -s /var/log/qov/ok.log.1
  tells "read again"
  [ "$(stat -c '%U:%G %a' /var/log/qov/ok.log)" = "qov:qov 600" ]

  # A restart from within keeps the process id, a crash brings another, the watch ends a hang.
  ctl restart
  sleep 2
  until_true ctl info
  [ "$(main_pid)" = "$pid" ]
  kill -KILL "$pid"
  until_true other_pid
  systemctl start qov-watch.service
  mkdir -p qov.service.d qov-watch.service.d
  printf '[Service]\nExecStart=\nExecStart=/usr/libexec/qov/watch %s 1\n' $config \
    >qov-watch.service.d/test.conf
  systemctl daemon-reload
  pid=$(main_pid)
  kill -STOP "$pid"
  gives 1 systemctl start qov-watch.service
  until_true other_pid

  # A file that it could not start with stays, and so does an agent that runs.
  pid=$(main_pid)
  set_key port ""
  cp $config /tmp/before
  gives 1 systemctl reload qov
  dpkg -i /test/second/*.deb 2>&1 | grep "TCP post is not specified!"
  cmp $config /tmp/before
  [ "$(main_pid)" = "$pid" ]
  ctl -p 1055 info
  set_key port 1055
  dpkg -i /test/second/*.deb
  until_true other_pid
  until_true tells 1.29k

  # An agent that was stopped stays so.
  ctl quit
  until_true gives 3 systemctl is-active qov.service qov-watch.timer
  systemctl start qov
  systemctl is-active qov-watch.timer

  mkdir -m 0700 /root-only
  set_key pidfile /run/qov/qov.pid
  while read -r dropin check; do
    cp "/usr/share/doc/qov/examples/dropins/$dropin.conf" qov.service.d/test.conf
    [ -z "$(systemd-analyze verify --man=no /lib/systemd/system/qov* 2>&1)" ]
    systemctl daemon-reload
    systemctl reset-failed
    systemctl restart qov
    until_true ctl info
    pid=$(main_pid)
    eval "$check" </dev/null
  done <<'DROPINS'
strict gives 4 ctl folder-size /root-only
allow-sudo grep 'NoNewPrivs:.0' "/proc/$pid/status"
read-all ctl folder-size /root-only && ctl count-files /root-only
root [ "$(stat -c %u "/proc/$pid")" = 0 ]
forking grep -x "$pid" /run/qov/qov.pid
DROPINS
  set_key comment "by signal"
  systemctl reload qov
  until_true tells "by signal"

  dpkg -r qov
  gives 1 pgrep -x qov
  [ -s $config ]
}

"test_$mode" "$@"
