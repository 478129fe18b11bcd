#!/usr/bin/env bash
# Installs what is missing, builds the default preset and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
ctest --preset default -j "$(nproc)"
