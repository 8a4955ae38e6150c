#!/usr/bin/env bash
# Runs the browser test of the admin console (console_browser_test.mjs) with Debian's Chromium.
# Installs puppeteer-core into BUILD_DIR/node when it is missing (npm registry), and writes the
# page's screenshot to BUILD_DIR/console.png. Usage: run_console_test.sh BUILD_DIR
set -euo pipefail
build_dir=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
node_dir="$build_dir/node"
browser=${KORVA_BROWSER:-$(command -v chromium || true)}
if [ -z "$browser" ]; then
  echo "run_console_test: chromium is not installed (scripts/install-deps.sh installs it)" >&2
  exit 1
fi
if [ ! -f "$node_dir/node_modules/puppeteer-core/package.json" ]; then
  echo "run_console_test: installing puppeteer-core into $node_dir" >&2
  mkdir -p "$node_dir"
  npm install --prefix "$node_dir" --no-audit --no-fund --loglevel=error puppeteer-core >&2
fi
export KORVA_BROWSER="$browser" KORVA_NODE_MODULES="$node_dir/node_modules"
export KORVA_SCREENSHOT="$build_dir/console.png"
exec node "$here/console_browser_test.mjs"
