#!/usr/bin/env bash
# Fuzzes the readers of foreign bytes.
#   scripts/fuzz.sh                    lists them
#   scripts/fuzz.sh NAME [SECONDS]     one of them, for a minute unless told otherwise
#   scripts/fuzz.sh --all [SECONDS]    each of them for so long, two at a time; a line for each that held
#   scripts/fuzz.sh --merge NAME       puts into fuzz/corpus/NAME what was found since and reaches more of the code
# New inputs stay in build/fuzz/found/NAME. An input that brings a reader down lies beside that folder. Less than ten seconds
# are not worth a build of their own: they go to that of scripts/sanitize.sh, in build/asan, up to three times as slow.
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
merge=
if [ "$1" = --merge ]; then
  merge=yes
  shift
fi
if [ "${1-}" != --all ]; then
  [ -f "fuzz/${1-}_fuzz.cpp" ] || { echo "fuzz.sh: no fuzz target named ${1-}" >&2; exit 2; }
  names=("$1")
fi
seconds=${2:-60}
preset=fuzz
[ "$merge" ] || [ "$seconds" -ge 10 ] || preset=asan
found=build/$preset/found
cmake --preset $preset >/dev/null
cmake --build --preset $preset --target "${names[@]/%/_fuzz}"

# What one input may take: seconds, and megabytes at once and of one allocation. A picture may hold 150 MB, and the
# sanitizer keeps 256 MB of what was freed. Stores lie in memory, where there is room.
fuzz() {  # fuzz NAME OPTION...
  local name=$1 seconds=5 all=1024 one=64
  shift
  case $name in
    image) all=2048 one=256 ;;
    tape | audit) seconds=20 ;;
  esac
  mkdir -p "$found/$name"
  [ -w /dev/shm ] && export TMPDIR=/dev/shm
  "build/$preset/fuzz/${name}_fuzz" -timeout=$seconds -rss_limit_mb=$all -malloc_limit_mb=$one \
    -artifact_prefix="$PWD/$found/$name-" "$@"
}
folders() { echo "$PWD/$found/$1 $PWD/fuzz/corpus/$1"; }

if [ "$merge" ]; then
  fuzz "$1" -set_cover_merge=1 -use_counters=0 -max_len=1024 "$PWD/fuzz/corpus/$1" "$PWD/$found/$1"
  exit
fi
if [ "$1" != --all ]; then
  # shellcheck disable=SC2046
  fuzz "$1" -max_total_time="$seconds" $(folders "$1")
  exit
fi
fuzz_quietly() {  # one line for a reader that held
  local log=$found/$1.log TIMEFORMAT='%U %S' spent
  # shellcheck disable=SC2046
  if ! spent=$({ time fuzz "$1" -max_total_time="$2" -print_final_stats=1 $(folders "$1") >"$log" 2>&1; } 2>&1); then
    cat "$log" >&2
    return 1
  fi
  awk -v name="$1" -v spent="$spent" '
    /^stat::number_of_executed_units/ { runs = $2 }
    { for (i = 1; i < NF; i++) if ($i == "cov:") edges = $(i + 1) }
    END {
      split(spent, cpu, " ")
      printf "fuzz: %-12s %10d executions %6d edges %6.0f processor seconds\n", name, runs, edges, cpu[1] + cpu[2]
    }' "$log"
}
mkdir -p "$found"
export preset found
export -f fuzz folders fuzz_quietly
printf '%s\n' "${names[@]}" | xargs -P 2 -I{} bash -c 'fuzz_quietly "$@"' fuzz {} "$seconds"
