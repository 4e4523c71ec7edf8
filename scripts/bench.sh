#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the benchmarks in Release and runs them; reports medians of 5 runs.
#   bash scripts/bench.sh [google-benchmark options, e.g. --benchmark_filter=Fit]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BENCH_BUILD_DIR:-build-release}
bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DVANDRO_BENCH=ON > /dev/null
cmake --build "$build" -j2 --target vandro_bench > /dev/null
"$build/bench/vandro_bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_display_aggregates_only=true "$@" 2>&1 | grep -v -E "_(mean|stddev|cv) "
