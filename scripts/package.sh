#!/usr/bin/env bash
# Builds the production programs from an operator's values and checks that nothing of the sandbox is in
# them: scripts/package.sh VALUES.cmake
set -euo pipefail
[ $# -eq 1 ] || { echo "package.sh: usage: scripts/package.sh VALUES.cmake" >&2; exit 2; }
values=$(realpath -- "$1")
cd "$(dirname "$0")/.."
. scripts/build-env.sh
cmake --preset release -B build/production \
  -DBRICKFALL_DEPLOYMENT=production -DBRICKFALL_PRODUCTION_VALUES="$values"
cmake --build build/production
if grep -lE 'BRICKFALL_SANDBOX|\.test\b' build/production/*.a build/production/cabinet/brickfall{,-audit}; then
  echo "package.sh: the production build names the sandbox" >&2
  exit 1
fi
echo "package.sh: the programs are brickfall and brickfall-audit in build/production/cabinet; put the architect's key file into userinfo/ beside it"
