#!/usr/bin/env bash
# Builds the release preset and runs every benchmark, or those whose name contains the argument.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
cmake --preset release >/dev/null
cmake --build --preset release
for program in build/release/bench/*"${1:-}"*_bench; do
  [ -x "$program" ] || continue
  echo "== $(basename "$program")"
  "$program"
done
