#!/bin/sh
# What is shipped as text is sound: shell scripts, man pages, units, samples.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
. "$root/tests/packaging/common.sh"
cd "$root"
need shellcheck mandoc

step "shell scripts"
scripts=$(grep -rlE '^#! ?/(usr/bin/env (ba)?sh|bin/(ba)?sh)' --exclude-dir='build*' \
  .ci tools packaging tests bench fuzz) || true
[ "$(echo "$scripts" | wc -l)" -gt 5 ] || fail "scripts not found: $scripts"
# shellcheck disable=SC2086  # a list of names
shellcheck -x -P SCRIPTDIR $scripts

step "one version"
release=$(sed -n '1s/^qov (\(.*\)).*/\1/p' packaging/debian/changelog)
grep -q "^set(QOV_RELEASE \"$release\"" cmake/package.cmake || fail "$release is only in the changelog"

step "man pages"
mandoc -T lint -W warning packaging/man/*.[1-8]
sed -n 's/^\([a-z]*\)=.*/\1/p' packaging/qov.cfg | while read -r key; do
  grep -q "Cm $key\>" packaging/man/qov.cfg.5 || fail "qov.cfg(5) lacks $key"
done
grep -oE '\{"[A-Za-z0-9-]+"' src/agent/dispatch.cpp | tr -d '{"' | while read -r command; do
  grep -q "\<$command\>" packaging/man/qov-protocol.7 || fail "qov-protocol(7) lacks $command"
done

step "units"
if command -v systemd-analyze >/dev/null; then
  units=$(mktemp -d)
  trap 'rm -rf "$units"' EXIT
  for unit in qov.service qov-watch.service; do
    systemd-analyze security --offline=true --threshold=25 "packaging/$unit" >"$units/said" ||
      fail "$unit: $(tail -n 1 "$units/said")"
  done
  for dropin in packaging/examples/agent/dropins/*.conf; do
    mkdir "$units/qov.service.d"
    cp "$dropin" "$units/qov.service.d/"
    # The programs are installed under names that do not exist here.
    for unit in packaging/*.service packaging/*.timer; do
      sed 's,=\(+\?\)/usr/[a-z/]*/\(qov\|qovctl\|watch\) ,=\1/bin/true ,' "$unit" \
        >"$units/${unit##*/}"
    done
    sed -i 's,=/usr/sbin/qov ,=/bin/true ,; s,=/usr/bin/qovctl ,=/bin/true ,' \
      "$units/qov.service.d/"*
    said=$(systemd-analyze verify --man=no "$units"/qov*.service "$units"/qov*.timer 2>&1) ||
      fail "$dropin: $said"
    [ -z "$said" ] || fail "$dropin: $said"
    rm -r "$units/qov.service.d"
  done
else
  echo "left out: no systemd-analyze here"
fi

step "firewall sample"
if command -v nft >/dev/null && [ "$(id -u)" -eq 0 ]; then
  nft -c -f packaging/examples/agent/qov.nft
else
  echo "left out: no nft here, or not root"
fi
