#!/bin/sh
# Builds the agent and the client, starts the agent on a demo configuration in a temporary folder, has the
# client ask it three questions, and stops it. FOLDER (default /usr/share/doc) is what is measured.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
folder=${1:-/usr/share/doc}

"$root/tools/install-deps.sh"
cmake -S "$root" -B "$root/build" -DQOV_TESTS=OFF >/dev/null
cmake --build "$root/build" --parallel "$(nproc)" --target qov qovctl

demo=$(mktemp -d)
agent=""
finish() {
  [ -z "$agent" ] || kill "$agent" 2>/dev/null || true
  rm -rf "$demo"
}
trap finish EXIT
trap 'exit 1' INT TERM

port=1055
while ss -Hltn "sport = :$port" | grep -q .; do port=$((port + 1)); done
umask 077
cat >"$demo/qov.cfg" <<CONFIG
host=127.0.0.1
port=$port
password=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
qovpath=$root/build/qov
filteractive=1
filterlist=127.0.0.1
filtermarks=1
tmpdir=$demo
CONFIG

"$root/build/qov" -i "$demo/qov.cfg" >"$demo/console" 2>&1 &
agent=$!
tries=100
until grep -q 'Listening' "$demo/console"; do
  tries=$((tries - 1))
  if [ "$tries" -eq 0 ] || ! kill -0 "$agent" 2>/dev/null; then
    cat "$demo/console"
    exit 1
  fi
  sleep 0.1
done

ask() {
  echo
  echo "\$ qovctl --config qov.cfg $*"
  "$root/build/qovctl" --config "$demo/qov.cfg" "$@"
}
ask info
ask disk /
ask folder-size --recurse "$folder"
ask quit
wait "$agent"
agent=""
echo
echo "The agent has stopped."
