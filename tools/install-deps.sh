#!/bin/sh
# Installs what building and testing needs (Debian packages, as root). Asks apt only for what is missing.
set -eu

packages="g++ clang cmake ninja-build make pkg-config python3 nettle-dev libgtest-dev libgmock-dev
  libbenchmark-dev libcli11-dev nlohmann-json3-dev zlib1g-dev clang-format procps iproute2
  dpkg-dev file lintian logrotate mandoc nftables shellcheck systemd"

missing=""
for package in $packages; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
    missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086  # a list of words
apt-get install -y -qq --no-install-recommends $missing >/dev/null
