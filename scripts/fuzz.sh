#!/usr/bin/env bash
# Fuzzes one reader of foreign bytes for a while: scripts/fuzz.sh NAME [SECONDS]. Without a name it lists them.
# New inputs stay in build/fuzz/found/NAME; copy the ones worth keeping to fuzz/corpus/NAME.
set -euo pipefail
cd "$(dirname "$0")/.."
# A clone in another folder finds what ccache holds already.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
if [ $# -lt 1 ]; then
  ls fuzz/*_fuzz.cpp | sed -E 's|fuzz/(.*)_fuzz.cpp|\1|'
  exit 0
fi
[ -f "fuzz/$1_fuzz.cpp" ] || { echo "fuzz.sh: no fuzz target named $1" >&2; exit 2; }
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "$1_fuzz"
mkdir -p "build/fuzz/found/$1"
"build/fuzz/fuzz/$1_fuzz" -max_total_time="${2:-60}" "build/fuzz/found/$1" "fuzz/corpus/$1"
