#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ccache
  libsimdjson-dev libmsgpack-cxx-dev nlohmann-json3-dev libcurl4-openssl-dev
  libsqlite3-dev libfmt-dev libcpp-httplib-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-14 libclang-rt-14-dev
  chromium  # renders the simulator's timeline page in the tool's browser test
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} == 0)); then
  echo "setup-deps: all packages present"
  exit 0
fi

echo "setup-deps: installing ${missing[*]}"
sudo=""
if [[ $(id -u) -ne 0 ]]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
