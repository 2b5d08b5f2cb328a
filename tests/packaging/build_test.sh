#!/bin/sh
# Builds both packages twice, in different places, under different circumstances, and compares them byte
# for byte; then a second version. Usage: build_test.sh FOLDER (gets first/ and second/, and keeps build/,
# so that the next run builds only what has changed since; the copy is built from nothing)
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
. "$root/tests/packaging/common.sh"
need dpkg-deb dpkg-shlibdeps cmake ninja gzip lintian
folder=$1
rm -rf "$folder/first" "$folder/second"
mkdir -p "$folder/first" "$folder/second"
rm -f "$folder"/build/*.deb
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

export SOURCE_DATE_EPOCH=1795521600
unset DESTDIR

# build SOURCE BUILD RELEASE: leaves the packages in BUILD.
build() {
  if ! { cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQOV_TESTS=OFF \
    "-DQOV_RELEASE=$3" && nice cmake --build "$2" --target package; } >"$work/log" 2>&1; then
    tail -n 50 "$work/log"
    fail "building in $2"
  fi
}

release=$(sed -n '1s/^qov (\(.*\)).*/\1/p' "$root/packaging/debian/changelog")
step "a build of $release in the source folder's place"
(umask 022 && TZ=UTC LC_ALL=C build "$root" "$folder/build" "$release")
cp "$folder"/build/*.deb "$folder/first"
ls "$folder/first"

step "a build elsewhere"
mkdir -p "$work/copied/to here"
(cd "$root" && cp -r CMakeLists.txt LICENSE SECURITY.md cmake docs fuzz packaging src \
  "$work/copied/to here")
find "$work/copied" -exec touch -d '2001-02-03' {} +
(umask 077 && TZ=Asia/Tokyo LC_ALL=C.UTF-8 build "$work/copied/to here" "$work/copied/to here/b" \
  "$release")
for package in "$folder"/first/*.deb; do
  cmp "$package" "$work/copied/to here/b/${package##*/}" ||
    fail "two builds of ${package##*/} differ"
done

step "lintian"
lintian --fail-on error,warning --allow-root "$folder"/first/*.deb

step "a second version"
build "$root" "$folder/build" 1.29k
cp "$folder"/build/*1.29k*.deb "$folder/second"
