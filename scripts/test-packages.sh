#!/usr/bin/env bash
# Installs the Debian packages that scripts/build-packages.sh made (from the
# folder given as argument, build-packages/ by default) with apt-get, runs
# the installed-package test against /usr (debian/tests/installed-package,
# which autopkgtest runs too) and the demonstration with the installed
# programs (scripts/demo.sh --installed), then purges the packages and checks
# that none of the files they installed is left. Needs root. Settings go to
# temporary folders only (XDG_CONFIG_HOME, XDG_CONFIG_DIRS), never to the
# real home or /etc.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath "${1:-build-packages}")
packages=(libmorvstring1 libmorvsettings1 libmorv-dev morv-settings mmslaunch)

if [[ $(id -u) -ne 0 ]]; then
  echo "Installing packages needs root" >&2
  exit 1
fi
debs=()
for package in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q installed; then
    echo "$package is installed already: remove it first" >&2
    exit 1
  fi
  found=("$folder/${package}"_*.deb)
  if [[ ${#found[@]} -ne 1 || ! -f ${found[0]} ]]; then
    echo "No single ${package}_*.deb in $folder: run scripts/build-packages.sh" >&2
    exit 1
  fi
  debs+=("${found[0]}")
done

work=$(mktemp -d "${TMPDIR:-/tmp}/morv-package-test-XXXXXX")
purged=false
purge() {
  if ! $purged; then
    DEBIAN_FRONTEND=noninteractive apt-get purge -y "${packages[@]}" >/dev/null
    purged=true
  fi
}
trap 'purge; rm -rf "$work"' EXIT

# What is on the machine before: a path the packages hold that exists now
# (a folder such as /usr/bin) may stay after the purge; nothing else may.
for deb in "${debs[@]}"; do
  dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -e 's|^\.||' -e 's|/$||' -e '/^$/d'
done | sort -u >"$work/contents"
while read -r path; do
  if [[ -e $path || -L $path ]]; then echo "$path"; fi
done <"$work/contents" >"$work/before"

echo "== apt-get install ${debs[*]}"
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${debs[@]}"
for package in "${packages[@]}"; do
  dpkg -L "$package"
done | grep -vx '/\.' | sort -u >"$work/installed"
echo "== $(wc -l <"$work/installed") paths installed"

echo "== installed-package test against /usr"
AUTOPKGTEST_TMP="$work/autopkgtest" debian/tests/installed-package

echo "== demonstration with the installed programs"
scripts/demo.sh --installed

echo "== apt-get purge ${packages[*]}"
purge
left=$(comm -23 "$work/installed" "$work/before" | while read -r path; do
  if [[ -e $path || -L $path ]]; then echo "$path"; fi
done)
if [[ -n $left ]]; then
  echo "Left after the purge:" >&2
  echo "$left" >&2
  exit 1
fi
for package in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -qv '^unknown\|not-installed'; then
    echo "$package is still known to dpkg" >&2
    exit 1
  fi
done
echo "== purged: none of the $(wc -l <"$work/installed") installed paths is left"
