#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with, when any is missing.
# Safe to run repeatedly: it does nothing when everything is present.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config
  libjsoncpp-dev libpugixml-dev libboost-dev libssl-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  curl python3 python3-requests
  nginx python3-matplotlib  # bench/: the reference server of http_vs_nginx.py, soak.py's plot
  clang libclang-rt-14-dev  # fuzz/: libFuzzer
  clang-format clang-tidy   # scripts/check-style.sh
  chromium                  # tests/e2e: the admin console in a headless browser
)
# Node.js and npm run the browser test; any installed node (Debian's or another) will do.
if ! command -v node >/dev/null; then PACKAGES+=(nodejs); fi
if ! command -v npm >/dev/null; then PACKAGES+=(npm); fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
