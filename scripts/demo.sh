#!/usr/bin/env bash
# Installs what is missing, builds the tool and runs the demo into ./demo-out (or $1).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target kvcache
./build/default/cli/kvcache demo "${1:-demo-out}"
