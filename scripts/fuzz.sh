#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the libFuzzer targets with clang and runs each for a bounded time.
#   bash scripts/fuzz.sh [seconds per target, default 60]
# VANDRO_FUZZ_SEED fixes libFuzzer's seed (CI uses 1, so that its short run is
# repeatable); without it every run explores afresh.
# A crash leaves its input in build-fuzz/artifacts/<target>/; once fixed, keep
# it under fuzz/regressions/<target>/ so that the test suite replays it.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=${VANDRO_FUZZ_BUILD_DIR:-build-fuzz}
bash scripts/setup.sh
command -v clang++-14 > /dev/null || { echo "fuzz: clang-14 is needed (apt-get install clang-14 libclang-rt-14-dev)" >&2; exit 1; }
targets="handle_buffer_fuzz entry_point_fuzz curve_file_fuzz numeric_api_fuzz feed_fuzz"
mkdir -p "$build"
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVANDRO_FUZZ=ON -DBUILD_TESTING=OFF > /dev/null
cmake --build "$build" -j2 --target $targets > "$build/build.log" 2>&1 \
  || { tail -40 "$build/build.log"; exit 1; }
status=0
for target in $targets; do
  corpus="$build/corpus/$target"
  artifacts="$build/artifacts/$target/"
  mkdir -p "$corpus" "$artifacts"
  echo "fuzz: $target for ${seconds}s"
  kept=()
  [ -d "fuzz/corpus/$target" ] && kept+=("fuzz/corpus/$target")          # the seeds kept in the repository
  [ -d "fuzz/regressions/$target" ] && kept+=("fuzz/regressions/$target")
  seed=()
  [ -n "${VANDRO_FUZZ_SEED:-}" ] && seed=(-seed="$VANDRO_FUZZ_SEED")
  # Each input of the entry-point target is a whole measurement, seconds long
  # under the sanitizers: let it use long inputs (per-buffer faults) at once.
  [ "$target" = entry_point_fuzz ] && seed+=(-max_len=512 -len_control=0)
  if ! "$build/fuzz/$target" "$corpus" "${kept[@]}" "${seed[@]}" -max_total_time="$seconds" \
       -artifact_prefix="$artifacts" -print_final_stats=1 > "$build/$target.log" 2>&1; then
    echo "fuzz: $target found a failure; see $build/$target.log and $artifacts"
    status=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$build/$target.log" | sed 's/^/  /'
done
exit $status
