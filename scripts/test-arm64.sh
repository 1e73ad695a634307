#!/usr/bin/env bash
# Builds the libraries, the settings tool and their tests for arm64 with
# Debian's cross compiler and runs the tests under qemu's user-mode emulator
# (build-arm64/). The launcher (Qt) and the benchmarks are left out. On
# arm64 the conversions take the portable kernel; the tests check that too.
#
# Needs root once, to install what it takes: the arm64 architecture in dpkg,
# the cross compiler, qemu-user-static and the arm64 development packages.
# Arguments are passed to ctest (for instance -R 'StringConversion').
set -euo pipefail
cd "$(dirname "$0")/.."

host_packages=(crossbuild-essential-arm64 qemu-user-static cmake ninja-build pkg-config
               scdoc libcli11-dev nlohmann-json3-dev python3 man-db)
arm64_packages=(libc6:arm64 libicu-dev:arm64 libexpat1-dev:arm64 libgtest-dev:arm64 libplist-dev:arm64)

missing=()
for package in "${host_packages[@]}" "${arm64_packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if ((${#missing[@]} > 0)); then
  if [[ $(id -u) -ne 0 ]]; then
    echo "Missing Debian packages: ${missing[*]}" >&2
    echo "Run this as root, or: sudo dpkg --add-architecture arm64 && sudo apt-get update &&" \
      "sudo apt-get install ${missing[*]}" >&2
    exit 1
  fi
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    dpkg --add-architecture arm64
  fi
  apt-get update
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi

jobs=$(nproc)
start=$(date +%s)
cmake -S . -B build-arm64 -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/aarch64-linux-gnu.cmake" \
  -DMORV_WERROR=ON -DMORV_BUILD_LAUNCHER=OFF -DMORV_BUILD_BENCHMARKS=OFF \
  -DMORV_TEST_TIMEOUT=3000
cmake --build build-arm64 -j "$jobs"
built=$(date +%s)
echo "== arm64 build: $((built - start)) s"
# Emulation is several times slower than the machine itself: each test gets
# more time than its native limit (MORV_TEST_TIMEOUT above). Left out: the
# three tests that match the whole standard error of a process dying of an
# assertion, to which qemu adds a line of its own ("qemu: uncaught target
# signal 6 (Aborted) - core dumped"). They check the assertions of mvtl's
# header-only templates.
aborting='^(RefCountedPtrDeathTest\.|SettingsNode\.RepeatingFailedGetChildAbortsOnTheAssertion$)'
ctest --test-dir build-arm64 --output-on-failure -j "$jobs" -E "$aborting" "$@"
echo "== arm64 tests under qemu: $(($(date +%s) - built)) s"
