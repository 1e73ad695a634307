#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, if any are
# missing (Debian 12). Installing needs root; when nothing is missing this
# does nothing and needs no privileges.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config   # toolchain
  clang-format-14                    # the format check of the test command
  libgtest-dev libbenchmark-dev      # tests, benchmarks
  libicu-dev                         # ICU headers; ICU as the benchmarks' peer
  libexpat1-dev                      # the XML parser under the XML property-list reader
  libplist-dev                       # libplist 2.2: a peer in tests and benchmarks
  qt6-base-dev                       # the launcher (Qt 6 Core)
  libcli11-dev                       # morv-settings' command line
  nlohmann-json3-dev                 # morv-settings' JSON
  scdoc man-db                       # morv-settings' manual page: made, and read in its test
  python3                            # plistlib, an independent reader in the tests
  ansible-core                       # the Ansible collection's fleet test (ansible-playbook, ansible-doc)
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi
if [[ $(id -u) -ne 0 ]]; then
  echo "Missing Debian packages: ${missing[*]}" >&2
  echo "Run this as root, or: sudo apt-get install ${missing[*]}" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
apt-get update
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
