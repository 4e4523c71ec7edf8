#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what building and testing libvandro needs on Debian 12. Run as root.
# Quick when everything is already there: apt is only asked for what is missing.
set -euo pipefail

packages=(
  cmake make g++ binutils pkg-config
  dpkg-dev                      # dpkg-source unpacks Debian's kissfft source package
  libeigen3-dev
  android-liblog-dev android-libbase-dev
  googletest libgtest-dev libbenchmark-dev
  libsndfile1-dev               # the simulator's WAV files
  libcli11-dev nlohmann-json3-dev python3 python3-matplotlib   # the vandro program and its plots
  valgrind clang-14 libclang-rt-14-dev                           # memcheck and the fuzz targets
  blueprint-tools               # bpfmt: Android.bp stays well-formed
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]}; run this script as root (sudo $0)" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
