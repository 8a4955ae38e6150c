#!/usr/bin/env bash
# Builds every configuration and runs all tests: Release, then AddressSanitizer +
# UndefinedBehaviorSanitizer, then ThreadSanitizer, then the fuzz targets (clang, libFuzzer with
# ASan + UBSan: each runs over its seed corpus and fuzzes for a short while; scripts/fuzz-long.sh
# makes the long runs). Installs missing Debian packages first.
# Usage: scripts/test-all.sh [preset ...]   (default: release asan tsan fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then presets=(release asan tsan fuzz); fi

jobs=$(nproc)
status=0
for preset in "${presets[@]}"; do
  echo "=== ${preset}: configure and build ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== ${preset}: test ==="
  if ! ctest --preset "$preset" -j "$jobs"; then
    status=1
  fi
done
exit $status
