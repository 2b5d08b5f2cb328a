#!/bin/sh
# Builds everything and runs all tests. With sanitizer names (asan, tsan) as arguments, runs those builds too.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
tools/install-deps.sh
for preset in dev "$@"; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" -j 4
done
