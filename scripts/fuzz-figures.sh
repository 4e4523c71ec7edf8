#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs one fuzz target for a fixed time with libFuzzer's coverage report and
# prints its figures: edges covered, executions per second, and which of the
# pipeline's functions it reached. Resumes from (and adds to) its corpus.
#   bash scripts/fuzz-figures.sh TARGET [seconds, default 600]
set -euo pipefail
cd "$(dirname "$0")/.."
target=$1
seconds=${2:-600}
build=${VANDRO_FUZZ_BUILD_DIR:-build-fuzz}
[ -x "$build/fuzz/$target" ] || { echo "fuzz-figures: build the targets first (bash scripts/fuzz.sh 1)" >&2; exit 1; }
corpus="$build/corpus/$target"
mkdir -p "$corpus" "$build/artifacts/$target"
seeds=()
[ -d "fuzz/corpus/$target" ] && seeds=("fuzz/corpus/$target")
log="$build/$target.figures.log"
extra=()
[ "$target" = entry_point_fuzz ] && extra=(-max_len=512 -len_control=0)  # as scripts/fuzz.sh
# VANDRO_FIGURES_ONLY=1 summarises the log of an earlier run instead.
if [ -z "${VANDRO_FIGURES_ONLY:-}" ]; then
  "$build/fuzz/$target" "$corpus" "${seeds[@]}" "${extra[@]}" -max_total_time="$seconds" -timeout=60 -print_coverage=1 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$target/" > "$log" 2>&1 || true
fi
edges=$(grep -E "^#[0-9]+[[:space:]]+DONE" "$log" | sed -E 's/.*cov: ([0-9]+).*/\1/' | tail -1 || true)
runs=$(grep -E "stat::number_of_executed_units" "$log" | awk '{print $2}' || true)
echo "$target: ${edges:-?} edges, ${runs:-?} executions in ${seconds} s ($(echo "scale=1; ${runs:-0} / $seconds" | bc) per second)"
for f in VandroHandleBuffer readBuffer calcDeviceCurve searchResonances calculateModelInEar calculateModelInConcha \
         adaptFilterCurve freqToIr stmcb tf2sos curveCorrelation VandroDefault importCurve; do
  if grep -q -E "^COVERED_FUNC: .* $f[( ]" "$log"; then printf '  reached %s\n' "$f"; fi
done
grep -l . "$build/artifacts/$target/"* 2>/dev/null | sed 's/^/  found: /' || true
