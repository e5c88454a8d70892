#!/usr/bin/env bash
# Builds the fuzz targets under ASan and UBSan and runs each for a while:
#   scripts/fuzz.sh [SECONDS [SEED_FOLDER...]]
# Seeds are the files of the folders given; corpora grow below build/corpus. Ends with a line a
# target and fails when one found something (the input stands in build/corpus/TARGET-*).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true
scripts/install-deps.sh --ci
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
failed=0
for target in build/fuzz/fuzz/fuzz_*; do
    [[ -x "$target" && -f "$target" ]] || continue
    name=$(basename "$target")
    mkdir -p "build/corpus/$name"
    if "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -max_len=65536 \
        -artifact_prefix="build/corpus/$name-" -print_final_stats=1 \
        "build/corpus/$name" "$@" >"build/corpus/$name.log" 2>&1; then
        echo "$name: nothing found in $(sed -n 's/.*number_of_executed_units: //p' \
            "build/corpus/$name.log") runs"
    else
        echo "$name: FOUND, see build/corpus/$name.log"
        failed=1
    fi
done
exit $failed
