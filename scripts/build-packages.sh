#!/usr/bin/env bash
# Builds the Debian packages (libmorvstring1, libmorvsettings1, libmorv-dev,
# morv-settings, mmslaunch and their -dbgsym packages) from a clean copy of
# the committed tree (git archive HEAD: uncommitted changes and build folders
# stay out), with dpkg-buildpackage, then checks them with lintian, which
# must report no error and no warning. The packages, the .changes and
# .buildinfo files go to the folder given as argument (build-packages/ by
# default), emptied first; the script prints their names.
#
# Installs what it needs with apt-get when missing (the packaging tools and
# the packages' build dependencies), which needs root.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
out=$(realpath -m "${1:-build-packages}")

tools=(dpkg-dev debhelper lintian fakeroot)
missing=()
for package in "${tools[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if ((${#missing[@]} > 0)); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "Missing Debian packages: ${missing[*]}; run this as root" >&2
    exit 1
  fi
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/morv-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT
version=$(dpkg-parsechangelog -l debian/changelog -S Version)
source_dir="$work/morv-${version%-*}"
mkdir "$source_dir"
git -C "$repo" archive --format=tar HEAD | tar -x -C "$source_dir"
cd "$source_dir"

# The build dependencies that debian/control names.
if ! dpkg-checkbuilddeps 2>/dev/null; then
  if [[ $(id -u) -ne 0 ]]; then
    dpkg-checkbuilddeps || true
    echo "Install the build dependencies above, or run this as root" >&2
    exit 1
  fi
  DEBIAN_FRONTEND=noninteractive apt-get build-dep -y --no-install-recommends ./
fi

jobs=$(nproc)
((jobs > 2)) && jobs=2
nice -n 19 dpkg-buildpackage -b -us -uc -j"$jobs"

mkdir -p "$out"
rm -f "$out"/*.deb "$out"/*.changes "$out"/*.buildinfo
changes=("$work"/morv_"${version}"_*.changes)
mv "$work"/*.deb "$work"/*.buildinfo "${changes[@]}" "$out"/
echo "== lintian"
lintian --fail-on error,warning --display-info "$out/$(basename "${changes[0]}")"
echo "== lintian: no error, no warning"
echo "== packages in $out:"
for file in "$out"/*.deb; do
  basename "$file"
done
