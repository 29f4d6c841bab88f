#!/usr/bin/env bash
# Plays RUNS paid runs through everything below the windows while services fail as SEED says; or one course again that a
# failure has printed.
#
#   scripts/soak.sh SEED RUNS
#   scripts/soak.sh --course TEXT
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
cmake --preset release >/dev/null
cmake --build --preset release --target brickfall-soak >/dev/null
# The stores of its worlds wait for no disk.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
exec build/release/soak/brickfall-soak "$@"
