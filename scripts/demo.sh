#!/usr/bin/env bash
# Builds and runs the main program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >/dev/null
# Its own build folder, so that the release and test builds keep their settings.
cmake --preset demo >/dev/null
cmake --build --preset demo -j "$(nproc)" --target iam_demo >/dev/null
exec build/demo/tools/iam/iam_demo "$@"
