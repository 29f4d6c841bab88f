#!/usr/bin/env bash
# Builds the run logic with both compilers, without and with optimisation, without and with sanitizers, plays
# the same runs in each and compares what they print. Usage: determinism.sh SOURCE_FOLDER WORK_FOLDER
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: determinism.sh SOURCE_FOLDER WORK_FOLDER" >&2; exit 2; }
mkdir -p "$2"
cd "$2"
rm -f ./*.digest

sources=("$1"/tests/programs/determinism_digest.cpp "$1"/game/{simulation,input_tape,run_control}.cpp
         "$1"/base/{text,clock}.cpp "$1"/tests/support/manual_clock.cpp)
cache=$(command -v ccache || true)

play() {  # name, compiler, flags...
  local name=$1 compiler=$2 source object objects=()
  shift 2
  mkdir -p "$name"
  for source in "${sources[@]}"; do
    object=$name/$(basename "$source" .cpp).o
    $cache "$compiler" -std=c++20 -I"$root" "$@" -c "$source" -o "$object"
    objects+=("$object")
  done
  "$compiler" "$@" "${objects[@]}" -o "$name/play" -lcrypto -pthread
  "$name/play" >"$name.digest"
}

root=$1
sanitized="-fsanitize=undefined,address -fno-sanitize-recover=all"
builds=()
for compiler in g++ clang++; do
  for level in -O0 -O3; do
    builds+=("$compiler$level $compiler $level" "$compiler$level-sanitized $compiler $level $sanitized")
  done
done

play_words() {  # the words of one entry of builds
  local words
  read -ra words <<<"$1"
  play "${words[@]}"
}

# Two at a time.
failed=0
for ((i = 0; i < ${#builds[@]}; i += 2)); do
  play_words "${builds[i]}" & first=$!
  play_words "${builds[i + 1]}" & second=$!
  wait "$first" || failed=1
  wait "$second" || failed=1
done
[ "$failed" -eq 0 ] || { echo "determinism: a build or a run failed" >&2; exit 1; }

reference=g++-O0.digest
for digest in *.digest; do
  cmp -s "$reference" "$digest" || { diff "$reference" "$digest" | head -n 6; failed=1; }
done
[ "$failed" -eq 0 ] || { echo "determinism: builds disagree" >&2; exit 1; }
echo "${#builds[@]} builds agree on $(wc -l <"$reference") runs: $(sha256sum "$reference" | cut -c1-16)"
tail -n 1 "$reference"
