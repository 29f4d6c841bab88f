#!/usr/bin/env bash
# Formats every source; with --check it only reports what it would change, and fails.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" = "--check" ] && mode=(--dry-run --Werror)
git ls-files -co --exclude-standard '*.h' '*.cpp' | xargs clang-format "${mode[@]}"
