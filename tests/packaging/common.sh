# shellcheck shell=sh
# Sourced by the package tests.

# Ends the test as skipped, with a word.
skip() {
  echo "skipped: $*"
  exit 77
}

# Ends the test as failed.
fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# need TOOL...: skips the test where one is missing.
need() {
  for tool; do
    command -v "$tool" >/dev/null || skip "no $tool here"
  done
}

# step TEXT: tells how far the test has come.
step() {
  echo "== $*"
}
