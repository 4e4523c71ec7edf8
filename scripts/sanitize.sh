#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_ASAN_BUILD_DIR:-build-asan}
bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DVANDRO_SANITIZE=ON > /dev/null
cmake --build "$build" -j2 > "$build/build.log" 2>&1 || { tail -40 "$build/build.log"; exit 1; }
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$build" -j2 --output-on-failure
