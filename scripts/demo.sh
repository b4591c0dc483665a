#!/usr/bin/env bash
# Builds the iam tool and plays the first-week journey of the example campaign, printing what the
# library decided and why.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >/dev/null
# Its own build folder, so that the release and test builds keep their settings.
cmake --preset demo >/dev/null
cmake --build --preset demo -j "$(nproc)" --target iam_tool >/dev/null
exec build/demo/tools/iam/iam simulate --campaign examples/campaign.json --ranked examples/ranked.json \
  --journey examples/first-week.jsonl "$@"
