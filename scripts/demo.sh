#!/usr/bin/env bash
# Builds the iam tool and plays the first-week journey of the example campaign, printing what the
# library decided and why, and writing the same run as a web page beside the build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup-deps.sh >/dev/null
# Its own build folder, so that the release and test builds keep their settings.
cmake --preset demo >/dev/null
cmake --build --preset demo -j "$(nproc)" --target iam_tool >/dev/null
page="$PWD/build/demo/first-week.html"
build/demo/tools/iam/iam simulate --campaign examples/campaign.json --ranked examples/ranked.json \
  --journey examples/first-week.jsonl --html "$page" "$@"
# On stderr, so that the timeline on stdout stays what the tool printed (one JSON object a line with --json).
echo "demo: the same week as a web page: $page" >&2
