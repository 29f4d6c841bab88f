#!/usr/bin/env bash
# Installs what is missing, builds and runs every test. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")"
# A clone in another folder finds what ccache holds already.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
ctest --test-dir build/release --output-on-failure --no-tests=error -j 2 "$@"
