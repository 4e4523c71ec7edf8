#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the library, the feed and the program into a fresh prefix, builds the
# examples (the direct consumer, the feed's HAL) against the installed package,
# removes the build tree, and runs the installed program and the examples from
# another folder.
#   bash scripts/install-check.sh [PREFIX]
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
work=$(mktemp -d /tmp/vandro-install-XXXXXX)
prefix=${1:-$work/prefix}
build="$work/build"
bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX="$prefix" \
  -DBUILD_TESTING=OFF > "$work/configure.log" 2>&1 || { cat "$work/configure.log"; exit 1; }
cmake --build "$build" -j2 > "$work/build.log" 2>&1 || { tail -40 "$work/build.log"; exit 1; }
cmake --install "$build" > "$work/install.log" 2>&1 || { cat "$work/install.log"; exit 1; }
for example in consumer feed; do
  cmake -S "examples/$example" -B "$work/$example" -DCMAKE_PREFIX_PATH="$prefix" > "$work/$example.log" 2>&1 \
    && cmake --build "$work/$example" >> "$work/$example.log" 2>&1 || { cat "$work/$example.log"; exit 1; }
done
rm -rf "$build"
mkdir -p "$work/elsewhere"
cd "$work/elsewhere"
"$prefix/bin/vandro" --version
"$prefix/bin/vandro" measure --preset dual-ba --save-wav capture.wav --plot capture.png > measure.txt
grep -q "Curve files: $prefix/var/lib/vandro/data" measure.txt || { echo "install-check: wrong storage root" >&2; cat measure.txt; exit 1; }
test -s capture.png
"$work/consumer/vandro_consumer" capture.wav > direct.txt
"$work/feed/vandro_feed_hal" capture.wav > feed.txt  # paced as a sound card: about 7 s
# The same coefficients, whether the library is fed directly or through the feed.
diff <(tail -n 5 direct.txt | sed 's/^ *//') <(tail -n 5 feed.txt | sed 's/^ *//') \
  || { echo "install-check: the feed's HAL example and the direct consumer differ" >&2; cat direct.txt feed.txt; exit 1; }
cat feed.txt
echo "install-check: installed into $prefix; program and examples ran from $work/elsewhere"
cd "$top"
rm -rf "$work"
