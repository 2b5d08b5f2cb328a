# shellcheck shell=sh
# The shipped units under a running systemd.
set -eu
# shellcheck source=steps.sh
. "${0%/*}/steps.sh"
first=/test/packages/first
second=/test/packages/second

main_pid() { systemctl show -P MainPID qov.service; }
status_of() { sed -n "s/^$1:[[:space:]]*//p" "/proc/$(main_pid)/status"; }
# is TEXT COMMAND...: the command prints the text.
is() {
  text=$1
  shift
  [ "$("$@")" = "$text" ] || fail "$*: $("$@"), not $text"
}
answers() { qovctl --config "$config" --timeout 5 info >/dev/null 2>&1; }
is_stopped() { [ "$(systemctl is-active qov.service qov-watch.timer | uniq)" = inactive ]; }
other_pid() { [ "$(main_pid)" != "$1" ] && answers; }

step "installation starts the agent and its watch"
expect 0 dpkg -i "$first"/qov-plugin_*.deb "$first"/qov_*.deb
expect 0 systemctl is-active qov.service qov-watch.timer
expect 0 systemctl is-enabled qov.service qov-watch.timer
until_true answers
is "$(id -u qov)" sh -c "stat -c %u /proc/$(main_pid)"
is 1 status_of NoNewPrivs
is 0000000000000000 status_of CapBnd

step "the hardened agent carries out every check, and reports what others see"
ask_every_check
expect 0 ctl process systemd && says 1
mkdir /home/somebody
echo words >/home/somebody/file
expect 0 ctl file /home/somebody/file
expect 0 ctl raw TEST-UNC /tmp && says "$(df -B1 --output=size /tmp | tail -n 1 | tr -d ' ')"
expect 0 systemctl start qov-watch.service

step "reload"
pid=$(main_pid)
set_key comment "read again"
expect 0 systemctl reload qov
expect 0 ctl info
says "read again"
set_key port ""
expect 1 systemctl reload qov
expect 0 ctl -p 1055 info
says "read again"
set_key port 1055

step "restart from within keeps the process id, a crash brings another"
expect 0 ctl restart
sleep 2
until_true answers
is "$pid" main_pid
kill -KILL "$pid"
until_true other_pid "$pid"

step "the watch restarts an agent that hangs"
mkdir -p /etc/systemd/system/qov-watch.service.d
printf '[Service]\nExecStart=\nExecStart=/usr/libexec/qov/watch %s 1\n' "$config" \
  >/etc/systemd/system/qov-watch.service.d/test.conf
systemctl daemon-reload
pid=$(main_pid)
kill -STOP "$pid"
expect 1 systemctl start qov-watch.service
until_true other_pid "$pid"

step "upgrade"
pid=$(main_pid)
set_key port ""
expect 0 dpkg -i "$second"/*.deb
is "$pid" main_pid
set_key port 1055
expect 0 dpkg -i "$second"/*.deb
until_true other_pid "$pid"
expect 0 ctl info
says 1.29k

step "an agent that was stopped stays so"
expect 0 ctl quit
until_true is_stopped
expect 0 systemctl start qov
expect 0 systemctl is-active qov-watch.timer

step "drop-ins"
mkdir -p /etc/systemd/system/qov.service.d /root-only
echo words >/root-only/file
chmod 0700 /root-only
for dropin in strict allow-sudo read-all root forking; do
  cp "/usr/share/doc/qov/examples/dropins/$dropin.conf" /etc/systemd/system/qov.service.d/test.conf
  set_key pidfile /run/qov/qov.pid
  systemctl daemon-reload
  systemctl reset-failed
  expect 0 systemctl restart qov
  until_true answers
  case $dropin in
    strict) expect 4 ctl folder-size /root-only ;;
    allow-sudo) is 0 status_of NoNewPrivs ;;
    read-all) expect 0 ctl folder-size /root-only ;;
    root) is 0 sh -c "stat -c %u /proc/$(main_pid)" ;;
    forking)
      is "$(main_pid)" cat /run/qov/qov.pid
      set_key comment "by signal"
      expect 0 systemctl reload qov
      until_true tells "by signal"
      ;;
  esac
done

step "removal"
expect 0 dpkg -P qov
expect 3 systemctl is-active qov.service
! pgrep -x qov || fail "an agent still runs"
