#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS, one after the other. Exits
# non-zero when a target finds an input that crashes, hangs or breaks its checks; that input is
# saved as build/fuzz/findings/<target>-crash-… (or timeout-…, oom-…).
# The corpus each run grows stays in build/fuzz/corpus and seeds the next run.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?usage: scripts/fuzz.sh SECONDS}
build=build/fuzz
cxx=${IAM_FUZZ_CXX:-clang++-14}

cmake -S . -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DIAM_BUILD_FUZZ=ON -DIAM_BUILD_TESTS=OFF -DIAM_BUILD_TOOLS=OFF -DIAM_INSTALL=OFF >/dev/null
# Only the targets: the shared library cannot link objects built for the fuzzer without its runtime.
cmake --build "$build" -j "$(nproc)" --target fuzz_make_seeds fuzz_advertisements_answer \
  fuzz_quality_network_answer fuzz_cached_answer_archive fuzz_stats_map

rm -rf "$build/seeds"
"$build/fuzz/fuzz_make_seeds" . "$build/seeds"
mkdir -p "$build/findings"

status=0
for run in advertisements_answer:advertisements quality_network_answer:quality_network \
           cached_answer_archive:archive stats_map:stats; do
  target=fuzz_${run%%:*}
  corpus=${run#*:}
  mkdir -p "$build/corpus/$corpus"
  echo "=== $target: ${seconds} s"
  if ! "$build/fuzz/$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
      -artifact_prefix="$build/findings/$target-" "$build/corpus/$corpus" "$build/seeds/$corpus"; then
    echo "=== $target: FINDING (see $build/findings)"
    status=1
  fi
done
exit "$status"
