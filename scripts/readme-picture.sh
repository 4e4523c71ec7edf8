#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Redraws the README's picture, docs/measure.png, from the default preset.
# Run it after a change that moves the curves, and commit the picture.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_BUILD_DIR:-build}
bash scripts/run.sh > /dev/null
"$build/tools/vandro" measure --plot docs/measure.png > /dev/null
echo "readme-picture: wrote docs/measure.png"
