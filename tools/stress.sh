#!/bin/sh
# Runs the tests under stress with their full counts, in the plain build and in those named as arguments (asan, tsan).
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
tools/install-deps.sh
for preset in dev "$@"; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target system_tests
  QOV_STRESS=1 "build-$preset/tests/system_tests" --gtest_filter='Stress*'
done
