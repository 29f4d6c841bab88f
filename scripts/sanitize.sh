#!/usr/bin/env bash
# Runs the tests under sanitizers: "address" (with undefined) runs all of them, "thread" the concurrent ones.
set -euo pipefail
cd "$(dirname "$0")/.."
# A clone in another folder finds what ccache holds already.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
run() {  # run PRESET [ctest arguments]
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j 2 "$@"
}
case "${1:-all}" in
  address) run asan ;;
  thread) run tsan -R 'Concurren|Thread|Worker|Story|Shutdown|Store' ;;
  all) "$0" address && "$0" thread ;;
  *) echo "usage: scripts/sanitize.sh [address|thread|all]" >&2; exit 2 ;;
esac
