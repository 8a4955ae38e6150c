#!/usr/bin/env bash
# Builds every configuration and runs all tests: Release, then AddressSanitizer +
# UndefinedBehaviorSanitizer, then ThreadSanitizer, then the fuzz targets (clang, libFuzzer with
# ASan + UBSan: each runs over its seed corpus and fuzzes for a short while; scripts/fuzz-long.sh
# makes the long runs). Before the builds, scripts/check-style.sh checks formatting and runs
# clang-tidy. Every build treats warnings as errors (KORVA_WERROR in the presets); the fuzz build
# is also the clang build that checks the thread-safety annotations. Installs missing Debian
# packages first.
# Usage: scripts/test-all.sh [preset ...]   (default: release asan tsan fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then presets=(release asan tsan fuzz); fi

jobs=$(nproc)
status=0
echo "=== style: clang-format and clang-tidy ==="
cmake --preset release >/dev/null
if ! bash scripts/check-style.sh build/release; then
  status=1
fi
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
