#!/usr/bin/env bash
# clang-tidy over the sources below the windows and the auditor's, with the checks of .clang-tidy. Nothing is built.
#   scripts/tidy.sh [--deep]
# Several sources of a target are looked at as one, since most of the time goes to the headers they share. The analyzer follows
# the paths of a function to a third of its usual number, which takes up to a third of the time off; with --deep it follows them
# all.
set -euo pipefail
cd "$(dirname "$0")/.."
export BRICKFALL_UNITY=ON
. scripts/build-env.sh
limit=()
[ "${1:-}" = --deep ] || limit=(--extra-arg=-Xclang --extra-arg=-analyzer-config --extra-arg=-Xclang --extra-arg=max-nodes=75000)
cmake --preset clang >/dev/null
# By this name of theirs the analyzer knows that what they include is the code to look at.
sed 's,Unity/unity_\([0-9]*\)_cxx,Unity/UnifiedSource\1,g' build/clang/compile_commands.json >build/clang/tidy.json
mkdir -p build/clang/tidy
mv build/clang/tidy.json build/clang/tidy/compile_commands.json
# The longest comes first. Small targets are looked at together, as the one of them that has the others' settings.
rm -f build/clang/{,page/}CMakeFiles/*/Unity/UnifiedSource*
sed -nE 's|^ *"file": "(.*/build/clang/(page/)?CMakeFiles/[^/]*\.dir/Unity/.*)"$|\1|p' build/clang/compile_commands.json |
  grep -v -e /deployment.dir/ -e /cabinet_ |
  while read -r unit; do
    sources=${unit/unity_/UnifiedSource}
    sources=${sources/_cxx.cxx/.cxx}
    case $sources in
      */net.dir/* | */messages*.dir/* | */game_flows.dir/* | */board_reading.dir/*)
        sources=${sources/CMakeFiles\/*.dir/CMakeFiles/board.dir}
        ;;
      */audit.dir/*) sources=${sources/audit.dir/brickfall-audit.dir} ;;
    esac
    grep -v "\"$PWD/build/" "$unit" >>"$sources"  # what the build makes is not ours
    echo "$sources"
  done |
  sort -u | xargs wc -l | sort -rn | awk '$2 != "total" { print $2 }' |
  xargs -P 2 -n 1 clang-tidy --quiet --checks=-bugprone-suspicious-include "${limit[@]}" -p build/clang/tidy 2>&1 |
  sed '/^[0-9]* warnings\{0,1\} generated\.$/d'  # how many it has kept to itself
echo "tidy: nothing to say"
