#!/usr/bin/env bash
# Builds and runs the main program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >/dev/null
cmake --preset release -DIAM_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target iam_demo >/dev/null
exec build/release/tools/iam/iam_demo "$@"
