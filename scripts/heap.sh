#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Peak heap of one whole measurement (collection, device curve, fit) of the
# default preset, measured with valgrind's massif on the vandro program.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
command -v valgrind > /dev/null || { echo "heap: valgrind is not installed (apt-get install valgrind)" >&2; exit 1; }
cmake --build "$build" -j2 --target vandro_cli > /dev/null
out=$(mktemp)
valgrind --tool=massif --massif-out-file="$out" "$build/tools/vandro" measure "$@" > /dev/null 2>&1
peak=$(grep -E '^mem_heap_B=' "$out" | cut -d= -f2 | sort -n | tail -1)
extra=$(grep -E '^mem_heap_extra_B=' "$out" | cut -d= -f2 | sort -n | tail -1)
printf 'peak heap: %d bytes (%.2f MiB), allocator overhead up to %d bytes\n' "$peak" \
  "$(echo "$peak / 1048576" | bc -l)" "$extra"
rm -f "$out"
