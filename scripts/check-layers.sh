#!/usr/bin/env bash
# Fails on an include that points upward: a folder includes only the folders listed behind it here.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A allowed=(
  [base]="base"
  [deployment]="deployment"
  [net]="net base deployment"
  [wallet]="wallet net base deployment"
  [messages]="messages wallet net base deployment"
  [game]="game messages wallet net base deployment"
  [board]="board game messages wallet net base deployment"
  [platform]="platform base"
  [cabinet]="cabinet platform assets board game messages wallet net base deployment"
  [sandbox]="sandbox platform wallet net base deployment"
  [sandbox/server]="sandbox base deployment"
)
bad=0

complain() {
  echo "check-layers: $1" >&2
  bad=1
}

# included FILE: the project folders that a file includes, one a line.
included() {
  sed -nE 's/^[[:space:]]*#[[:space:]]*include[[:space:]]+"([a-z]+)\/.*/\1/p' "$1" | sort -u
}

for folder in "${!allowed[@]}"; do
  depth=(-maxdepth 1)
  [ "$folder" = platform ] && depth=()
  [ -d "$folder" ] || continue
  while IFS= read -r file; do
    for used in $(included "$file"); do
      [[ " ${allowed[$folder]} " == *" $used "* ]] || complain "$file includes $used/"
    done
  done < <(find "$folder" "${depth[@]}" \( -name '*.h' -o -name '*.cpp' \))
done

# The rules of the game know nothing but themselves and base/.
for file in game/simulation.* game/input_tape.* game/week.* game/run_control.*; do
  [ -f "$file" ] || continue
  for used in $(included "$file"); do
    [[ " game base " == *" $used "* ]] || complain "$file includes $used/"
  done
done

only_in() {  # only_in PATTERN FOLDER: no file outside FOLDER may include what matches
  while IFS= read -r file; do
    complain "$file includes $1"
  done < <(git ls-files -co --exclude-standard '*.h' '*.cpp' | grep -vE "^$2" |
           xargs -r grep -lE "^[[:space:]]*#[[:space:]]*include[[:space:]]+<($1)" || true)
}
only_in 'curl/' 'net/'
only_in 'Q[A-Z]|Qt' 'platform/qt/'
only_in 'fluidsynth' 'platform/fluidsynth/'
only_in 'httplib' '(sandbox/server|tests/net)/'

[ "$bad" -eq 0 ] && echo "check-layers: every include points down"
exit "$bad"
