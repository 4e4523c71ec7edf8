#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The ways kissfft reaches the build, each checked as a user would take it:
#   debian   apt-get source (the reference: Debian's package, built here);
#   source   the same tree copied elsewhere, configured and built with the
#            network cut (unshare -n): the same coefficients, bit for bit; a
#            tree with one changed file is refused by name;
#   package  kissfft's own CMake build (double, static) installed in a prefix
#            and found by detection, offline: the whole test suite passes (its
#            golden vector holds the tolerance), no kissfft symbol leaves
#            libvandro.so;
#   Debian's float-only libkissfft-dev installed: detection passes it by, and
#            asking for the package route says what to do;
#   Android  a configure through a stand-in for the NDK's toolchain file
#            reaches its generate step offline without calling apt.
# Run as root on Debian 12 (unshare -n needs it); about five minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
dpkg-query -W -f='${Status}\n' libkissfft-dev 2>/dev/null | grep -q "install ok installed" || {
  echo "routes: installing Debian's float-only libkissfft-dev"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends libkissfft-dev > /dev/null
}
unshare -n true 2> /dev/null || { echo "routes: unshare -n is not permitted here; run as root" >&2; exit 1; }
work=$(mktemp -d /tmp/vandro-routes-XXXXXX)
fail() { echo "routes: $*" >&2; exit 1; }
build() { cmake --build "$1" -j2 ${2:+--target "$2"} > "$1/build.log" 2>&1 || { tail -40 "$1/build.log"; fail "build of $1 failed"; }; }
measure() { "$1/tools/vandro" measure --json "$2" > /dev/null; }

echo "routes: debian (the reference)"
cmake -S . -B "$work/debian" -DVANDRO_KISSFFT=debian -DBUILD_TESTING=OFF \
  -DVANDRO_KISSFFT_WORK="$work/kissfft-download" > "$work/debian.log" 2>&1 || { cat "$work/debian.log"; fail "configure failed"; }
build "$work/debian" vandro_cli
measure "$work/debian" "$work/debian.json"

echo "routes: source, offline"
tree="$work/elsewhere/kissfft"
mkdir -p "$work/elsewhere" && cp -r "$work/kissfft-download/kissfft-131.1.0" "$tree"
rm -rf "$work/kissfft-download"
unshare -n cmake -S . -B "$work/source" -DBUILD_TESTING=OFF -DVANDRO_KISSFFT_SOURCE_DIR="$tree" \
  > "$work/source.log" 2>&1 || { cat "$work/source.log"; fail "offline configure failed"; }
grep -q "kissfft (double): source route" "$work/source.log" || fail "the source route was not taken"
unshare -n cmake --build "$work/source" -j2 > "$work/source/build.log" 2>&1 || { tail -40 "$work/source/build.log"; fail "offline build failed"; }
targets=$(cmake --build "$work/source" --target help | grep -E -i 'test|bench|fuzz' || true)
[ -z "$targets" ] || fail "BUILD_TESTING=OFF still has test or benchmark targets: $targets"
measure "$work/source" "$work/source.json"
/usr/bin/python3 - "$work/debian.json" "$work/source.json" <<'PY'
import json, sys
a, b = (json.load(open(p)) for p in sys.argv[1:3])
assert a["result"] == 1, a["result"]
for key in ("coefficients", "device_curve"):
    assert a[key] == b[key], f"source route: {key} differs from the debian route's"
print("routes: source route offline: the debian route's coefficients and device curve, bit for bit")
PY
cp -r "$tree" "$work/tampered" && echo "/* changed */" >> "$work/tampered/kiss_fftr.c"
if cmake -S . -B "$work/tampered-build" -DVANDRO_KISSFFT_SOURCE_DIR="$work/tampered" > "$work/tampered.log" 2>&1; then
  fail "a changed kissfft tree was accepted"
fi
said() { tr -s ' \n' '  ' < "$1" | grep -q "$2"; }  # CMake folds its messages
said "$work/tampered.log" "kiss_fftr.c differs from Debian's kissfft 131.1.0" || { cat "$work/tampered.log"; fail "no line names the changed file"; }

echo "routes: Debian's float-only kissfft package is installed"
if cmake -S . -B "$work/float" -DVANDRO_KISSFFT=package > "$work/float.log" 2>&1; then fail "package route took a float build"; fi
said "$work/float.log" "no static double build of kissfft is installed" || { cat "$work/float.log"; fail "no clear line for a float-only package"; }

echo "routes: package (kissfft's CMake build, double, static), offline"
unshare -n cmake -S "$tree" -B "$work/kissfft-build" -DKISSFFT_DATATYPE=double -DKISSFFT_STATIC=ON \
  -DKISSFFT_TEST=OFF -DKISSFFT_TOOLS=OFF -DKISSFFT_PKGCONFIG=OFF -DCMAKE_POSITION_INDEPENDENT_CODE=ON \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$work/kissfft-prefix" > "$work/kissfft.log" 2>&1 \
  && cmake --build "$work/kissfft-build" -j2 >> "$work/kissfft.log" 2>&1 \
  && cmake --install "$work/kissfft-build" >> "$work/kissfft.log" 2>&1 || { cat "$work/kissfft.log"; fail "kissfft's own build failed"; }
unshare -n cmake -S . -B "$work/package" -DCMAKE_PREFIX_PATH="$work/kissfft-prefix" \
  > "$work/package.log" 2>&1 || { cat "$work/package.log"; fail "offline configure failed"; }
grep -q "kissfft (double): package" "$work/package.log" || fail "detection did not take the installed double build"
unshare -n cmake --build "$work/package" -j2 > "$work/package/build.log" 2>&1 || { tail -40 "$work/package/build.log"; fail "offline build failed"; }
leaked=$(nm -D --defined-only "$work/package/libvandro.so" | grep -E ' kiss_' || true)
[ -z "$leaked" ] || fail "kissfft symbols leave libvandro.so: $leaked"
ctest --test-dir "$work/package" -j2 > "$work/package-tests.log" 2>&1 || { cat "$work/package-tests.log"; fail "the suite fails on the package route"; }
echo "routes: package route offline: $(grep -E 'tests passed' "$work/package-tests.log")"

echo "routes: Android configure, offline, through a stand-in for the NDK's toolchain file"
mkdir -p "$work/no-apt"
for tool in apt-get apt dpkg-source; do
  printf '#!/bin/sh\necho "%s $*" >> %s/apt-calls\nexit 1\n' "$tool" "$work" > "$work/no-apt/$tool"
  chmod +x "$work/no-apt/$tool"
done
PATH="$work/no-apt:$PATH" unshare -n cmake -S . -B "$work/android" -DCMAKE_TOOLCHAIN_FILE=cmake/ndk-stand-in.cmake \
  -DEIGEN3_INCLUDE_DIR=/usr/include/eigen3 -DVANDRO_KISSFFT_SOURCE_DIR="$tree" > "$work/android.log" 2>&1 \
  || { cat "$work/android.log"; fail "the Android configure failed"; }
grep -q "^-- Generating done" "$work/android.log" || fail "the Android configure did not generate"
if PATH="$work/no-apt:$PATH" unshare -n cmake -S . -B "$work/android-bare" -DCMAKE_TOOLCHAIN_FILE=cmake/ndk-stand-in.cmake \
  -DEIGEN3_INCLUDE_DIR=/usr/include/eigen3 > "$work/android-bare.log" 2>&1; then
  fail "an Android configure without kissfft succeeded"
fi
said "$work/android-bare.log" "VANDRO_KISSFFT_SOURCE_DIR=DIR" || { cat "$work/android-bare.log"; fail "no line says what to do"; }
[ ! -e "$work/apt-calls" ] || { cat "$work/apt-calls"; fail "the Android configure called apt"; }
echo "routes: Android configure generated without apt; without kissfft it says what to do"
rm -rf "$work"
