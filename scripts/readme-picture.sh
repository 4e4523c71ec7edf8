#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Redraws the README's pictures: docs/measure.png from the default preset, and
# docs/rig.png from simulated 10 and 100 ohm captures through a 27.6-ohm sense
# resistor with 50 Hz hum.
# Run it after a change that moves the curves, and commit the picture.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
bash scripts/run.sh > /dev/null
"$build/tools/vandro" measure --plot docs/measure.png > /dev/null
# A resistor answers 4, and this rig's verdict is marginal (11).
expect() {
  local want=$1 got=0
  shift
  "$@" > /dev/null || got=$?
  [ "$got" -eq "$want" ] || { echo "readme-picture: $* gave status $got, not $want" >&2; exit 1; }
}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
expect 4 "$build/tools/vandro" measure --resistor 10 --mode curve --sense 27.6 --hum -60 --save-wav "$scratch/r10.wav"
expect 4 "$build/tools/vandro" measure --resistor 100 --mode curve --sense 27.6 --hum -60 --tilt-v -0.004 \
  --save-wav "$scratch/r100.wav"
expect 11 "$build/tools/vandro" rig "$scratch/r10.wav" --known 10 "$scratch/r100.wav" --known 100 --plot docs/rig.png
echo "readme-picture: wrote docs/measure.png and docs/rig.png"
