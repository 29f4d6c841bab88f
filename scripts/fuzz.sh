#!/usr/bin/env bash
# Fuzzes the readers of foreign bytes.
#   scripts/fuzz.sh                    lists them
#   scripts/fuzz.sh NAME [SECONDS]     one of them, for a minute unless told otherwise
#   scripts/fuzz.sh --all [SECONDS]    each of them for so long, two at a time
# New inputs stay in build/asan/found/NAME; copy the ones worth keeping to fuzz/corpus/NAME. An input that brings a
# reader down lies beside that folder.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh

names=(fuzz/*_fuzz.cpp)
names=("${names[@]#fuzz/}")
names=("${names[@]%_fuzz.cpp}")
if [ $# -lt 1 ]; then
  printf '%s\n' "${names[@]}"
  exit 0
fi
if [ "$1" != --all ]; then
  [ -f "fuzz/$1_fuzz.cpp" ] || { echo "fuzz.sh: no fuzz target named $1" >&2; exit 2; }
  names=("$1")
fi
cmake --preset asan >/dev/null
cmake --build --preset asan --target "${names[@]/%/_fuzz}"

fuzz() {  # fuzz NAME SECONDS
  mkdir -p "build/asan/found/$1"
  "build/asan/fuzz/$1_fuzz" -max_total_time="$2" -artifact_prefix="build/asan/found/$1-" \
    "build/asan/found/$1" "fuzz/corpus/$1"
}

if [ "$1" != --all ]; then
  fuzz "$1" "${2:-60}"
  exit
fi
fuzz_quietly() {  # one line for a reader that held
  local log=build/asan/found/$1.log
  if fuzz "$1" "$2" >"$log" 2>&1; then
    echo "fuzz: $1: $(tail -n 1 "$log")"
  else
    cat "$log" >&2
    return 1
  fi
}
mkdir -p build/asan/found
export -f fuzz fuzz_quietly
printf '%s\n' "${names[@]}" | xargs -P 2 -I{} bash -c 'fuzz_quietly "$@"' fuzz {} "${2:-60}"
