#!/usr/bin/env bash
# Installs what is missing, builds the tool and runs the demo into ./demo-out (or $1).
set -euo pipefail
cd "$(dirname "$0")/.."
# The demo needs only the build packages; a package it does not use (such as the validator's
# npm) failing to install must not stop it. A missing build package fails the build below.
bash scripts/deps.sh || echo "demo.sh: some packages could not be installed; building anyway" >&2
cmake --preset default >/dev/null
cmake --build --preset default --target kvcache
./build/default/cli/kvcache demo "${1:-demo-out}"
