#!/usr/bin/env bash
# Ends or starves the program at drawn moments, and looks each time whether anything is lost: scripts/kills.sh SEED
# COUNT, or what a failure prints. Half of the moments are a SIGKILL, half an exhaustion.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
cmake --preset release >/dev/null
cmake --build --preset release --target brickfall-kills
# Stores in memory: what the disk takes is another question.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
exec build/release/soak/brickfall-kills "$@"
