#!/usr/bin/env bash
# Runs the tests under sanitizers: address with undefined, and thread; under the latter a few paid runs of the soak as well.
# The former leave what of the code they have run, for scripts/coverage.sh.
# Left out: of both, the comparison of compilers, which brings its own sanitizers; of "thread", what has one thread only:
# the rules of a run, rows, pages, and the replays of fuzz inputs; of "address", what only a browser does with a page. What is
# around the product (sandbox, tests) has no sanitizer but that of addresses there.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
run() {  # run PRESET
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
  ctest --test-dir "build/$1" --output-on-failure --no-tests=error -j 3
}
case "${1:-all}" in
  address)
    # Each program adds what it has run to one of two files of its own; without the variable it keeps nothing.
    rm -rf build/asan/coverage
    export LLVM_PROFILE_FILE=$PWD/build/asan/coverage/%2m.profraw
    LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0 run asan
    ;;
  thread)
    export TSAN_OPTIONS=suppressions=$PWD/scripts/tsan.supp
    run tsan
    [ -w /dev/shm ] && export TMPDIR=/dev/shm
    build/tsan/soak/brickfall-soak "$(od -An -N4 -tu4 /dev/urandom | tr -d ' ')" 6
    ;;
  all) scripts/sanitize.sh address && scripts/sanitize.sh thread ;;
  *) echo "usage: scripts/sanitize.sh [address|thread|all]" >&2; exit 2 ;;
esac
