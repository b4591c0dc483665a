#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test: plain, ASan+UBSan, and the
# concurrency tests under TSan, then a few seconds of each fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup-deps.sh

jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1

run_preset() {
  local preset=$1
  echo "=== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== ${preset}: test"
  ctest --preset "$preset" -j "$jobs"
}

run_preset debug
run_preset asan-ubsan
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
run_preset tsan
echo "=== fuzz: a short run of each target"
scripts/fuzz.sh 5
echo "=== all tests passed"
