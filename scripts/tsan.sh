#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The feed's tests under ThreadSanitizer: the audio thread pushes while the
# worker runs the library. Builds only the feed and its tests.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_TSAN_BUILD_DIR:-build-tsan}
bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANDRO_TSAN=ON > /dev/null
cmake --build "$build" -j2 --target vandro_feed_tests > "$build/build.log" 2>&1 || { tail -40 "$build/build.log"; exit 1; }
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
"$build/tests/vandro_feed_tests"
