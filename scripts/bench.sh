#!/usr/bin/env bash
# Builds the release preset and runs every benchmark, or those of the programs whose name contains NAME:
#   scripts/bench.sh [NAME]
#   scripts/bench.sh --compare [--against COMMIT] [NAME]
# --compare runs each twice beside the last release's build, or that of COMMIT, in turns, and prints for each the better
# of its two processor times before and now, and now divided by before.
set -euo pipefail
cd "$(dirname "$0")/.."
compare=no
against=
name=
while [ $# -gt 0 ]; do
  case "$1" in
    --compare) compare=yes ;;
    --against)
      [ $# -ge 2 ] || { echo "bench.sh: --against needs a commit" >&2; exit 2; }
      against=$2
      shift
      ;;
    -*) echo "bench.sh: unknown argument \"$1\"" >&2; exit 2 ;;
    *) name=$1 ;;
  esac
  shift
done

# build FOLDER: its benchmark programs of that name, built as FOLDER's own sources say.
build() (
  cd "$1"
  . scripts/build-env.sh
  cmake --preset release >/dev/null
  local targets=()
  for source in bench/*"$name"*_bench.cpp; do
    [ -f "$source" ] && targets+=("$(basename "$source" .cpp)")
  done
  [ "${#targets[@]}" -gt 0 ] || { echo "bench.sh: no benchmark's name contains \"$name\"" >&2; exit 2; }
  cmake --build --preset release --target "${targets[@]}" >"$log" 2>&1 || { tail -n 40 "$log" >&2; exit 1; }
)

log=$(mktemp)
trap 'rm -f "$log"' EXIT
build .

if [ "$compare" = no ]; then
  for program in build/release/bench/*"$name"*_bench; do
    echo "== $(basename "$program")"
    "$program"
  done
  exit
fi

if [ -z "$against" ]; then
  against=$(git describe --tags --abbrev=0 2>/dev/null) || {
    echo "bench.sh: no release is tagged yet; name a commit with --against" >&2
    exit 2
  }
fi
against=$(git rev-parse --verify --short "$against^{commit}")
former=$PWD/build/compare/$against
[ -d "$former" ] || git worktree add --detach --force "$former" "$against" >/dev/null 2>&1
build "$former"

echo "Against $against, in processor time; two runs of each, in turns"
for program in build/release/bench/*"$name"*_bench; do
  before=$former/$program
  [ -x "$before" ] || continue
  echo "== $(basename "$program")"
  for run in "$before" "$program" "$program" "$before"; do
    [ "$run" = "$program" ] && side=now || side=before
    # Not as CSV: its reporter aborts where benchmarks of a program have different counters.
    "$run" --benchmark_format=json 2>/dev/null |
      jq -r --arg side "$side" '.benchmarks[] | select(.error_occurred | not) | [$side, .name, .cpu_time, .time_unit] | @tsv'
  done | awk -F '\t' '
    {
      if (!($2 in unit)) order[++count] = $2
      unit[$2] = $4
      if (!(($1, $2) in best) || $3 < best[$1, $2]) best[$1, $2] = $3
    }
    END {
      for (i = 1; i <= count; ++i) {
        name = order[i]
        if (!(("now", name) in best) || !(("before", name) in best)) continue
        ratio = best["before", name] > 0 ? best["now", name] / best["before", name] : 1
        printf "%-60s %12.4g %12.4g %-3s %6.3f%s\n", name, best["before", name], best["now", name], unit[name], ratio,
               (ratio > 1.03 ? "  slower" : "")
      }
    }'
done
