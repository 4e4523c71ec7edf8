#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A real arm64 build on this machine: the library, kissfft and the test suite
# cross-compiled with Debian's aarch64 toolchain, the suite and one whole
# simulated measurement run under qemu-user, and the coefficients compared with
# the x86-64 build's. Run as root on Debian 12 (it adds the arm64 architecture).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${VANDRO_ARM64_BUILD_DIR:-build-arm64}
native=${VANDRO_BUILD_DIR:-build}

bash scripts/setup.sh
arm_packages=(g++-aarch64-linux-gnu qemu-user android-liblog-dev:arm64 android-libbase-dev:arm64
              libgtest-dev:arm64 libsndfile1-dev:arm64)
missing=()
for p in "${arm_packages[@]}"; do
  dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  dpkg --print-foreign-architectures | grep -qx arm64 || dpkg --add-architecture arm64
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# kissfft by the source route: the tree that the native build fetched, or the
# one VANDRO_KISSFFT_SOURCE_DIR names.
cmake -S . -B "$native" > /dev/null
tree=${VANDRO_KISSFFT_SOURCE_DIR:-$native/_deps/kissfft/kissfft-131.1.0}
[ -d "$tree" ] || { echo "arm64: no kissfft source tree at $tree; set VANDRO_KISSFFT_SOURCE_DIR" >&2; exit 1; }
echo "arm64: building in $build (kissfft from $tree)"
mkdir -p "$build"
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANDRO_KISSFFT=source -DVANDRO_KISSFFT_SOURCE_DIR="$tree" \
  > "$build/configure.log" 2>&1 \
  || { cat "$build/configure.log"; exit 1; }
cmake --build "$build" -j2 > "$build/build.log" 2>&1 || { tail -40 "$build/build.log"; exit 1; }
file "$build/libvandro.so"

echo "arm64: test suite under qemu-user"
# The program's own tests start it as a child process, which needs binfmt_misc
# to run an arm64 binary; the measurement below runs it under qemu directly.
ctest --test-dir "$build" -j2 --output-on-failure -E '^Cli\.'

echo "arm64: one whole simulated measurement, against the x86-64 build"
cmake --build "$native" -j2 --target vandro_cli > /dev/null
"$native/tools/vandro" measure --json "$native/x86-64.json" > /dev/null
qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/tools/vandro" measure --json "$build/arm64.json" > /dev/null
/usr/bin/python3 - "$native/x86-64.json" "$build/arm64.json" <<'PY'
import json, sys
a, b = (json.load(open(p)) for p in sys.argv[1:3])
assert a["result"] == b["result"] == 1, (a["result"], b["result"])
flat = lambda r: [v for row in r["coefficients"] for v in row]
diffs = [abs(x - y) for x, y in zip(flat(a), flat(b))]
rel = max(abs(x - y) / max(abs(x), 1e-30) for x, y in zip(flat(a), flat(b)))
print(f"arm64 vs x86-64: result {b['result']} on both, {b['buffers']} buffers, largest coefficient "
      f"difference {max(diffs):.3g} (relative {rel:.3g}; a float's epsilon is 1.19e-07)")
PY
