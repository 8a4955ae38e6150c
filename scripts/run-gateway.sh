#!/usr/bin/env bash
# Builds korva-gateway (Release) and runs it. Without arguments it runs the embedded default:
# KORVA on http://127.0.0.1:8080, admin API on http://127.0.0.1:8081, one user bound to one
# simulated camera (the credentials are printed at start). Arguments are passed to the gateway.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target korva-gateway korva_protocol
exec build/release/bin/korva-gateway "$@"
