#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every preset and the shipped measured curve at start offsets across one
# stimulus period: the share of starts that finished, the buffers at the best
# and the worst start, the device curve's spread and whether the answers agree.
#   bash scripts/offset-sweep.sh [--full] [--csv FILE] [--plot FILE] [--snr DB] [--before CSV]
# The default grid has 16 starts, --full 64, spread over the 38-buffer period.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
bash scripts/setup.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build" -j2 --target vandro_cli > /dev/null
mapfile -t presets < <("$build/tools/vandro" presets | cut -d' ' -f1)
exec /usr/bin/python3 scripts/offset_sweep.py --vandro "$build/tools/vandro" "$@" \
  "${presets[@]}" docs/examples/ba-knowles-twfk30017.csv
