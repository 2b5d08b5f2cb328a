# shellcheck shell=sh
# From the first installation to the purge where no service manager runs.
set -eu
# shellcheck source=steps.sh
. "${0%/*}/steps.sh"
first=/test/packages/first
second=/test/packages/second

# What a rewrite by the agent, an upgrade or a removal must keep.
facts() { stat -c '%U:%G %a' "$1"; }
is() { [ "$(facts "$1")" = "$2" ] || fail "$1: $(facts "$1"), not $2"; }

# Starts the agent with user, mask and command line of its unit.
start_agent() {
  unit=/lib/systemd/system/qov.service
  command=$(sed -n 's/^ExecStart=//p' $unit)
  check=$(sed -n 's/^ExecStartPre=//p' $unit)
  user=$(sed -n 's/^User=//p' $unit)
  umask "$(sed -n 's/^UMask=//p' $unit)"
  # shellcheck disable=SC2086  # command lines
  setpriv --reuid "$user" --regid "$user" --init-groups --bounding-set=-all $check >/dev/null
  # shellcheck disable=SC2086
  setpriv --reuid "$user" --regid "$user" --init-groups --bounding-set=-all --no-new-privs \
    $command >/tmp/console 2>&1 &
  agent=$!
  umask 022
  ctl wait >/dev/null
}

step "first installation"
expect 0 dpkg -i "$first"/qov-plugin_*.deb "$first"/qov_*.deb
is "$config" "qov:qov 600"
is /etc/qov "root:qov 770"
is /var/lib/qov "qov:qov 700"
is /var/lib/qov/tmp "qov:qov 700"
is /var/log/qov "qov:qov 750"
password=$(sed -n 's/^password=//p' "$config")
echo "$password" | grep -qxE '[0-9a-f]{32}' || fail "password: $password"
sed 's/^password=.*/password=/' "$config" | cmp - /usr/share/qov/qov.cfg
expect 0 runuser -u qov -- qovctl check-config --strict "$config"
[ -z "$(dpkg --verify qov qov-plugin)" ] || fail "$(dpkg --verify qov qov-plugin)"

step "the agent, as the unit starts it"
start_agent
ask_every_check

step "a change by a server"
expect 0 ctl set "Comment=changed from afar"
is "$config" "qov:qov 600"
is "$config.Old" "qov:qov 600"
grep -q '^comment=changed from afar' "$config" || fail "the comment was not saved"
expect 0 ctl info
says "changed from afar"
[ -z "$(ls /var/lib/qov/tmp)" ] || fail "temporary files stay"

step "the watch"
watch=/usr/libexec/qov/watch
expect 0 $watch "$config" 1
sed 's/^password=.*/password=another/' "$config" >/tmp/other.cfg
expect 0 $watch /tmp/other.cfg 1
kill -STOP $agent
expect 69 $watch "$config" 1
kill -CONT $agent

step "upgrade"
before=$(sha256sum "$config")
expect 0 dpkg -i "$second"/*.deb
says "qovctl check-config"
[ "$(sha256sum "$config")" = "$before" ] || fail "the upgrade changed the configuration"
expect 0 ctl info
says 1.29j
expect 0 ctl restart
until_true tells 1.29k
[ "$(readlink /proc/$agent/exe)" = /usr/sbin/qov ] || fail "another process id after the restart"

step "upgrade with a configuration that cannot be used"
set_key port 0
before=$(sha256sum "$config")
expect 0 dpkg -i "$second"/*.deb
says "TCP post is not specified!"
says "not restarted"
[ "$(sha256sum "$config")" = "$before" ] || fail "the upgrade changed the configuration"
set_key port 1055

step "logs are rotated under a running agent"
if command -v logrotate >/dev/null; then
  set_key logsuccess 1
  expect 0 ctl reload
  expect 0 ctl info
  expect 0 logrotate -f -s /tmp/rotated /etc/logrotate.d/qov
  [ -s /var/log/qov/ok.log.1 ] || fail "ok.log was not rotated"
  expect 0 ctl info
  is /var/log/qov/ok.log "qov:qov 600"
else
  echo "left out: no logrotate here"
fi

step "removal"
expect 0 ctl quit
wait "$agent" || fail "the agent ended with $?"
expect 69 $watch "$config" 1
expect 0 dpkg -r qov
[ -s "$config" ] || fail "the removal took the configuration"
[ ! -e /usr/sbin/qov ] || fail "the removal left the agent"
expect 0 dpkg -i "$second"/qov_*.deb
grep -q "^password=$password" "$config" || fail "the configuration is not that of before"

step "purge"
touch "$config.New"
expect 0 dpkg -P qov qov-plugin
rm -r /tmp/*
