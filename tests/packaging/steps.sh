# shellcheck shell=sh
# Sourced by the steps that run within the sandbox.
# shellcheck source=common.sh
. "${0%/*}/common.sh"

config=/etc/qov/qov.cfg
ctl() { qovctl --config "$config" --timeout 20 "$@"; }

# set_key KEY VALUE: changes a line of the configuration file, as an administrator would.
set_key() { sed -i "s,^$1=.*,$1=$2," "$config"; }

# expect STATUS COMMAND...: the command ends with this status; its output is kept in $said.
expect() {
  wanted=$1
  shift
  status=0
  said=$("$@" 2>&1) || status=$?
  [ "$status" -eq "$wanted" ] || fail "$*: status $status, not $wanted: $said"
}

# says TEXT: the last output holds the text.
says() {
  case $said in
    *"$1"*) ;;
    *) fail "\"$1\" is not in: $said" ;;
  esac
}

# tells TEXT: the agent's information holds the text.
tells() { ctl info 2>&1 | grep -q -- "$1"; }

# until_true COMMAND...: waits, 20 seconds at most, until the command succeeds.
until_true() {
  tries=200
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || fail "waited in vain for: $*"
    sleep 0.1
  done
}

# Asks the agent every check that it has enabled, and those that the shipped file turns off.
ask_every_check() {
  mkdir -p /tmp/asked
  echo "some words" >/tmp/asked/one
  chmod -R a+rX /tmp/asked
  expect 0 ctl raw GetInfo
  enabled=$(echo "$said" | sed -n 's/.*Enabled tests=\([01]*\).*/\1/p')
  [ "$enabled" = 1111111111100 ] || fail "enabled tests: $enabled"
  port=$(sed -n 's/^port=//p' "$config")
  expect 0 ctl tcp 127.0.0.1 "$port"
  expect 0 ctl udp 127.0.0.1 9 --send x
  expect 0 ctl disk /
  expect 0 ctl folder-size /usr/share/qov
  expect 0 ctl count-files /tmp/asked && says 1
  expect 0 ctl file /tmp/asked/one && says 11
  expect 0 ctl checksum /tmp/asked/one
  expect 0 ctl compare /tmp/asked/one /tmp/asked/one --contents
  expect 0 ctl find-text /tmp/asked/one words
  expect 0 ctl text-log /tmp/asked/one --find words
  expect 0 ctl text-log2 /tmp/asked/one --find words
  expect 0 ctl process qov && says 1
  expect 0 ctl processes && says qov
  expect 0 ctl cpu
  expect 0 ctl files /usr/share/qov && says qov.cfg
  expect 7 ctl external /bin/true
  expect 7 ctl execute /bin/true
  expect 7 ctl syslog 127.0.0.1 text
}
