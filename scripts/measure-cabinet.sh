#!/usr/bin/env bash
# Measures the cabinet on a desktop in memory: frame, heartbeat, processor, memory, and the time to its first window.
# Arguments go to the benchmark program, as in --benchmark_filter=WellFrame.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
cmake --preset release >/dev/null
cmake --build --preset release --target brickfall cabinet_bench
tests/e2e/run.sh build/release/bench/cabinet_bench "$@"
# shellcheck disable=SC2016
tests/e2e/run.sh bash -c '
  export LOCALAPPDATA=$XDG_CACHE_HOME/store BRICKFALL_SANDBOX_CONNECT=::127.0.0.1:9
  for start in cold warm warm; do
    began=$(date +%s%N)
    build/release/cabinet/brickfall &
    until xdotool search --onlyvisible --name "^Brickfall$" >/dev/null 2>&1; do kill -0 "$!" || exit 1; sleep 0.01; done
    echo "first window, $start start: $((($(date +%s%N) - began) / 1000000)) ms"
    sleep 1
    grep VmRSS "/proc/$!/status"
    kill $!
    wait $! 2>/dev/null || true
  done'
