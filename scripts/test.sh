#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# One command from a fresh clone: install what is missing, build, run every test.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}

bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" -j2
ctest --test-dir "$build" -j2 --output-on-failure
