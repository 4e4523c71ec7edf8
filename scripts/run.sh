#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# One command from a fresh clone: install what is missing, build, and run the
# library's main job on the default simulated headset, with its picture
# (build/measure.png; scripts/readme-picture.sh redraws the README's).
#   bash scripts/run.sh [vandro measure options...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}

bash scripts/setup.sh
mkdir -p "$build"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo > "$build/configure.log" 2>&1 \
  || { cat "$build/configure.log"; exit 1; }
cmake --build "$build" -j2 --target vandro_cli > "$build/build.log" 2>&1 \
  || { tail -50 "$build/build.log"; exit 1; }
"$build/tools/vandro" measure --plot "$build/measure.png" --json "$build/measure.json" "$@"
