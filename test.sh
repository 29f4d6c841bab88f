#!/usr/bin/env bash
# Installs what is missing, builds and runs every test. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/build-env.sh
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
ctest --test-dir build/release --output-on-failure --no-tests=error -j 3 "$@"
