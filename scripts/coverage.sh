#!/usr/bin/env bash
# Lines and branches of the product that the last tests of scripts/sanitize.sh address have run, by folder:
#   scripts/coverage.sh [FOLDER]     with FOLDER, by file
# A program that was killed has told nothing. A branch counts once for each way that it may go.
set -euo pipefail
cd "$(dirname "$0")/.."
within=${1:-}
within=${within%/}
profiles=(build/asan/coverage/*.profraw)
[ -f "${profiles[0]}" ] || { echo "coverage.sh: no profile in build/asan/coverage; scripts/sanitize.sh address leaves them" >&2; exit 2; }
merged=build/asan/coverage/merged.profdata
llvm-profdata-14 merge -sparse -failure-mode=all -o "$merged" "${profiles[@]}"
programs=()
for program in build/asan/{tests,cabinet,viewer,sandbox}/*; do
  [ -f "$program" ] && [ -x "$program" ] && programs+=(-object "$program")
done
# Each program has a main of its own, which it tells of as mismatched. A header is named as seen from the build. The columns:
# file; then of regions, functions, lines and branches all, missed, share.
llvm-cov-14 report -instr-profile "$merged" "${programs[@]}" 2> >(grep -v 'mismatched data' >&2) |
  awk -v within="$within" '
    function share(all, missed) { return all ? sprintf("%5.1f %%", 100 * (all - missed) / all) : "      -" }
    function row(name, lines, missed, branches, untaken) {
      return sprintf("%-34s %6d of %6d lines  %s   %6d of %6d branches  %s", name, lines - missed, lines,
                     share(lines, missed), branches - untaken, branches, share(branches, untaken))
    }
    { sub(/^(\.\.\/)+/, "", $1) }
    NF < 13 || $1 !~ /\.(h|cpp)$/ || $1 ~ /^(build|tests|fuzz|soak|tools)\// { next }
    {
      folder = $1
      sub(/\/.*/, "", folder)
      if (within != "") {
        if (index($1, within "/") != 1) next
        folder = $1
      }
      lines[folder] += $8; missed[folder] += $9; branches[folder] += $11; untaken[folder] += $12
      all_lines += $8; all_missed += $9; all_branches += $11; all_untaken += $12
    }
    END {
      if (!all_lines) exit 1
      for (name in lines) print row(name, lines[name], missed[name], branches[name], untaken[name]) | "sort"
      close("sort")
      print row("together", all_lines, all_missed, all_branches, all_untaken)
    }'
