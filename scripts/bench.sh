#!/usr/bin/env bash
# Builds the optimised preset and runs every benchmark; each measures both sides in one run.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
PKIXCMP_HOME=$(mktemp -d)
export PKIXCMP_HOME
trap 'rm -rf "$PKIXCMP_HOME"' EXIT
for bench in build/release/bench/bench_*; do
    [[ -x "$bench" && -f "$bench" && "$bench" != */bench_serve ]] || continue
    echo "== $(basename "$bench")"
    "$bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null
done
echo "== bench_serve"
build/release/bench/bench_serve build/release/tools/pkixcmp/pkixcmp
echo "== startup"
bench/startup.py build/release/tools/pkixcmp/pkixcmp
