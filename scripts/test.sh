#!/usr/bin/env bash
# Installs what it needs, builds the optimised preset and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release -j2
