#!/usr/bin/env bash
# Builds the run logic with both compilers, each without and with optimisation, one of these sanitized, plays the
# same runs in each build and compares what they print. Usage: determinism.sh SOURCE_FOLDER WORK_FOLDER
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: determinism.sh SOURCE_FOLDER WORK_FOLDER" >&2; exit 2; }
root=$1
mkdir -p "$2"
cd "$2"
rm -f ./*.digest
cache=$(command -v ccache || true)

# One unit, so that the headers are read once.
printf '#include "%s"\n' tests/programs/golden_runs.cpp game/{simulation,input_tape,run_control,replay}.cpp \
  base/{text,clock}.cpp >unit.cpp

play() {  # name, compiler, flags...
  local name=$1 compiler=$2
  shift 2
  $cache "$compiler" -std=c++20 -I"$root" "$@" -c unit.cpp -o "$name.o"
  "$compiler" "$@" "$name.o" -o "$name.run"
  "./$name.run" --play >"$name.digest"
}

# Two at a time.
sanitized=('-fsanitize=undefined,address' -fno-sanitize-recover=all)
failed=0
play g++-O0 g++ -O0 "${sanitized[@]}" & first=$!
play g++-O3 g++ -O3 & second=$!
wait "$first" || failed=1
wait "$second" || failed=1
play clang++-O0 clang++ -O0 & first=$!
play clang++-O3 clang++ -O3 "${sanitized[@]}" & second=$!
wait "$first" || failed=1
wait "$second" || failed=1
[ "$failed" -eq 0 ] || { echo "determinism: a build or a run failed" >&2; exit 1; }

reference=g++-O0.digest
digests=(*.digest)
for digest in "${digests[@]}"; do
  cmp -s "$reference" "$digest" || { diff "$reference" "$digest" | head -n 6; failed=1; }
done
[ "$failed" -eq 0 ] || { echo "determinism: builds disagree" >&2; exit 1; }
echo "${#digests[@]} builds agree on $(wc -l <"$reference") runs: $(sha256sum "$reference" | cut -c1-16)"
tail -n 1 "$reference"
