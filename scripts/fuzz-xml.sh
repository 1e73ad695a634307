#!/usr/bin/env bash
# Builds XmlPListFuzzer with clang (in build-fuzz-xml/, apart from the normal
# build) and runs it for SECONDS seconds on the XML seeds (fuzz/corpus/xml/)
# with the XML dictionary (fuzz/xml.dict); ends with the number of runs and
# the coverage reached.
#
#   scripts/fuzz-xml.sh SECONDS [libFuzzer options...]
#
# New inputs are kept in build-fuzz-xml/corpus/ (the next run starts from
# them), inputs that break an invariant in build-fuzz-xml/artifacts/, the
# whole output in build-fuzz-xml/fuzz.log. Exits non-zero when the fuzzer
# found a crash, a leak, a timeout or a broken invariant.
# Reproduce one with: build-fuzz-xml/fuzz/XmlPListFuzzer ARTIFACT
# The run stops at the first finding; "-fork=2 -ignore_crashes=1" keeps it
# going (in two processes) and collects them all.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $# -lt 1 || ! $1 =~ ^[0-9]+$ ]]; then
  echo "usage: $0 SECONDS [libFuzzer options...]" >&2
  exit 2
fi
seconds=$1
shift

build="build-fuzz-xml"
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
if [[ ! -f $build/build.ninja ]]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_C_COMPILER="${CC:-clang}" \
    -DCMAKE_CXX_COMPILER="${CXX:-clang++}" -DMORV_BUILD_FUZZERS=ON \
    -DMORV_BUILD_TESTS=OFF -DMORV_BUILD_BENCHMARKS=OFF "${launcher[@]}" >/dev/null
fi
cmake --build "$build" --target XmlPListFuzzer

mkdir -p "$build/corpus" "$build/artifacts"
touch "$build/fuzz.started"
status=0
"$build/fuzz/XmlPListFuzzer" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
  -dict=fuzz/xml.dict -artifact_prefix="$build/artifacts/" -print_final_stats=1 "$@" \
  "$build/corpus" fuzz/corpus/xml 2>&1 | tee "$build/fuzz.log" || status=$?

echo "== XmlPListFuzzer after ${seconds}s"
# The last status line: "#RUNS ... cov: EDGES ft: FEATURES corp: INPUTS ...".
grep -E '^#[0-9]+.* cov: ' "$build/fuzz.log" | tail -n 1 |
  sed -E 's/^#([0-9]+).* cov: ([0-9]+) ft: ([0-9]+) corp: ([0-9]+).*/runs: \1  coverage: \2 edges, \3 features  corpus: \4 inputs/'
findings=$(find "$build/artifacts" -type f -newer "$build/fuzz.started" | wc -l)
echo "findings this run: $findings (in $build/artifacts/)"
if ((status == 0 && findings > 0)); then status=1; fi
exit "$status"
