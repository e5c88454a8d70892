#!/usr/bin/env bash
# Formats all sources; with --check only says which are not formatted, and fails then.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=(-i)
[[ "${1:-}" == --check ]] && mode=(--dry-run -Werror)
git ls-files -z -- '*.h' '*.cpp' | xargs -0 clang-format "${mode[@]}"
