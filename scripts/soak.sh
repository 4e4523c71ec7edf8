#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Thousands of measurements in one process: memory flat, results reproducible.
#   bash scripts/soak.sh [measurements, default 2000]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
bash scripts/setup.sh
cmake -S . -B "$build" > /dev/null
cmake --build "$build" -j2 --target vandro_soak > /dev/null
"$build/tools/vandro_soak" "${1:-2000}"
