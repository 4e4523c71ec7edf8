#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A full measurement of every preset under valgrind memcheck, and the numeric
# functions given hostile counts: no invalid access, no leak. The exit status is non-zero at the first error.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
command -v valgrind > /dev/null || { echo "memcheck: valgrind is not installed (apt-get install valgrind)" >&2; exit 1; }
cmake --build "$build" -j2 --target vandro_cli > /dev/null
status=0
for preset in $("$build/tools/vandro" presets | awk '{print $1}'); do
  if valgrind --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
       --show-leak-kinds=definite,indirect -q "$build/tools/vandro" measure --preset "$preset" > /dev/null 2> "$build/memcheck-$preset.log"; then
    echo "memcheck: $preset clean"
  else
    rc=$?
    if [ "$rc" -eq 99 ]; then
      echo "memcheck: $preset: errors, see $build/memcheck-$preset.log"; status=1
    else
      echo "memcheck: $preset clean (vandro exit $rc)"
    fi
  fi
done
# The numeric functions' refusals of hostile counts (the log-lines table):
# refused without a stray access. The void functions meet hostile counts in
# numeric_api_fuzz, under ASan in CI.
cmake --build "$build" -j2 --target vandro_tests > /dev/null
if valgrind --error-exitcode=99 -q "$build/tests/vandro_tests" --gtest_filter='LogLines*' \
     > "$build/memcheck-hostile-counts.log" 2>&1; then
  echo "memcheck: hostile counts clean"
else
  echo "memcheck: hostile counts: errors, see $build/memcheck-hostile-counts.log"; status=1
fi
exit $status
