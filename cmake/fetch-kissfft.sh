#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Obtains Debian's kissfft source package with apt-get source, using a deb-src
# list and apt state kept under the build tree (the system's apt configuration
# is read, never changed), checks the pinned SHA-256 sums and unpacks it.
#
#   fetch-kissfft.sh WORKDIR SUMSFILE
#
# Prints the unpacked source directory on the last line of stdout. A second
# run with everything in place only re-checks the sums.
set -euo pipefail

work=$1
sums=$2
version=$(awk '/^# version /{print $3}' "$sums")
src="$work/kissfft-${version%-*}"
stamp="$work/unpacked.stamp"

check_sums() { (cd "$work/download" && sha256sum --quiet -c "$sums"); }

if [ -f "$stamp" ] && [ -d "$src" ] && check_sums 2>/dev/null; then
  echo "$src"
  exit 0
fi

mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" \
         "$work/apt/sources.list.d" "$work/download"

# The private deb-src list mirrors the system's Debian entries for this release.
. /etc/os-release
list="$work/apt/sources.list.d/debian-src.sources"
: > "$list"
for f in /etc/apt/sources.list.d/*.sources; do
  [ -f "$f" ] || continue
  awk -v c="${VERSION_CODENAME}" '
    BEGIN { RS = ""; FS = "\n" }
    {
      keep = 0; out = ""
      for (i = 1; i <= NF; i++) {
        line = $i
        if (line ~ /^Suites:/ && line ~ ("[ \t]" c "([ \t-]|$)")) keep = 1
        if (line ~ /^Types:/) line = "Types: deb-src"
        out = out line "\n"
      }
      if (keep) printf "%s\n", out
    }' "$f" >> "$list"
done
for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ -f "$f" ] || continue
  awk -v c="${VERSION_CODENAME}" '
    /^[ \t]*deb[ \t]/ { $1 = "deb-src"; for (i = 2; i <= NF; i++) if ($i ~ ("^" c "($|-)")) { print; next } }' \
    "$f" >> "$work/apt/sources.list.d/debian-src.list"
done

apt_opts=(
  -o "Dir::Etc::SourceList=/dev/null"
  -o "Dir::Etc::SourceParts=$work/apt/sources.list.d"
  -o "Dir::State::Lists=$work/apt/lists"
  -o "Dir::Cache=$work/apt/cache"
  -o "Dir::State::Status=/dev/null"
  -o "APT::Sandbox::User=root"
  -o "Debug::NoLocking=1"
)
echo "kissfft: refreshing the private deb-src index" >&2
apt-get "${apt_opts[@]}" -qq update >&2
echo "kissfft: apt-get source --download-only kissfft=$version" >&2
(cd "$work/download" && apt-get "${apt_opts[@]}" -qq source --download-only "kissfft=$version" >&2)

if ! check_sums; then
  echo "kissfft: SHA-256 mismatch against $sums" >&2
  exit 1
fi

rm -rf "$src"
(cd "$work" && dpkg-source --no-check -x "download/kissfft_${version}.dsc" "$src" >&2)
touch "$stamp"
echo "$src"
