#!/usr/bin/env bash
# Checks the sources' format, then builds and runs every test twice: a
# normal build (build/) and a build with AddressSanitizer and
# UndefinedBehaviorSanitizer (build-sanitize/); then builds the
# multi-threaded and multi-process tests with ThreadSanitizer (build-tsan/)
# and runs them.
# Fails on any unformatted source, failing test, compiler warning or
# sanitizer report. Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-dependencies.sh

jobs=$(nproc)

echo "== format check"
scripts/check-format.sh

echo "== normal build"
cmake -S . -B build -G Ninja -DMORV_WERROR=ON
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"

echo "== sanitizer build (address, undefined)"
cmake -S . -B build-sanitize -G Ninja -DMORV_WERROR=ON -DMORV_SANITIZE=ON \
  -DMORV_BUILD_BENCHMARKS=OFF
cmake --build build-sanitize -j "$jobs"
# Any report ends the process with an error: ASan and LeakSanitizer by
# default, UBSan because the build does not recover from it.
export ASAN_OPTIONS=detect_leaks=1:check_initialization_order=1:strict_init_order=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-sanitize --output-on-failure -j "$jobs"

echo "== thread sanitizer build (the multi-threaded and multi-process tests)"
cmake -S . -B build-tsan -G Ninja -DMORV_WERROR=ON -DMORV_SANITIZE_THREAD=ON \
  -DMORV_BUILD_BENCHMARKS=OFF
cmake --build build-tsan -j "$jobs" \
  --target SettingsThreadsTest SettingsProcessesTest SettingsSaveStallTest StoreLockTest
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" \
  -R '^(SettingsThreads|SettingsProcesses|SettingsSaveStall|StoreLock|StoreLockDeathTest)\.'

echo "== all tests passed in every build"
