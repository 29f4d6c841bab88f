#!/usr/bin/env bash
# Fails on an include that points upward, since a folder includes only the folders listed behind it here, and on a
# circle between any two modules (a .h and .cpp of one name) or folders.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A allowed=(
  [base]="base"
  [deployment]="deployment"
  [net]="net base deployment"
  [wallet]=""
  [wallet/protocol]="wallet/protocol base"
  [wallet/json]="wallet/json base"
  [wallet/events]="wallet/events"
  [wallet/keys]="wallet/keys wallet/protocol base"
  [wallet/store]="wallet/store wallet/keys wallet/protocol wallet/json base deployment"
  [wallet/chain]="wallet/chain wallet/protocol wallet/json net base deployment"
  [wallet/coins]="wallet/coins wallet/store wallet/keys wallet/events wallet/protocol wallet/json base"
  [wallet/session]="wallet/session wallet/coins wallet/chain wallet/store wallet/keys wallet/events wallet/protocol base
                    deployment"
  [wallet/payment]="wallet/payment wallet/session wallet/coins wallet/chain wallet/store wallet/keys wallet/protocol
                    wallet/json net base deployment"
  [wallet/link]="wallet/link wallet/session wallet/coins wallet/chain wallet/store wallet/keys wallet/events wallet/json
                 net base deployment"
  [messages]="messages wallet net base deployment"
  [game]="game messages wallet net base deployment"
  [board]="board game messages wallet net base deployment"
  [audit]="audit page board game messages wallet net base deployment"
  [platform]="platform base"
  [cabinet]="cabinet platform assets board game messages wallet net base deployment"
  [page]="page cabinet platform game wallet base"
  [page/module]="page viewer cabinet platform game base"
  [viewer]="viewer page cabinet platform audit board game messages net base deployment"
  [players]="players game base"
  [sandbox]="sandbox platform wallet net base deployment"
  [sandbox/server]="sandbox players game base deployment"
  [soak]="soak tests sandbox players cabinet audit board game messages wallet net base deployment"
)
bad=0

complain() {
  echo "check-layers: $1" >&2
  bad=1
}

# included FILE: the project folders that a file includes, one a line; of the wallet the room.
included() {
  sed -nE 's/^[[:space:]]*#[[:space:]]*include[[:space:]]+"(wallet\/[a-z]+|[a-z]+)\/.*/\1/p' "$1" | sort -u
}

# permitted FOLDER USED: whether the folder's list names the used one, or the whole that it is a room of.
permitted() {
  local list=" ${allowed[$1]//$'\n'/ } "
  [[ "$list" == *" $2 "* || "$list" == *" ${2%%/*} "* ]]
}

for folder in "${!allowed[@]}"; do
  depth=(-maxdepth 1)
  [ "$folder" = platform ] && depth=()
  [ -d "$folder" ] || continue
  while IFS= read -r file; do
    for used in $(included "$file"); do
      permitted "$folder" "$used" || complain "$file includes $used/"
    done
  done < <(find "$folder" "${depth[@]}" \( -name '*.h' -o -name '*.cpp' \))
done

# What lies in the wallet lies in one of its rooms.
while IFS= read -r file; do
  folder=${file%/*}
  [ -n "${allowed[$folder]:-}" ] || complain "$file is in no room of the wallet"
done < <(find wallet -type f)

# The rules of the game know nothing but themselves and base/.
for file in game/simulation.* game/input_tape.* game/tape_hash.* game/week.* game/run_control.* game/replay.*; do
  [ -f "$file" ] || continue
  for used in $(included "$file"); do
    [[ " game base " == *" $used "* ]] || complain "$file includes $used/"
  done
done

# Whoever plays by them knows the rules alone, not the flows around a run.
while IFS= read -r file; do
  complain "$file includes more of game/ than the rules"
done < <(git ls-files -co --exclude-standard 'players/*.h' 'players/*.cpp' 'sandbox/*.h' 'sandbox/*.cpp' |
         xargs grep -lE '^[[:space:]]*#[[:space:]]*include[[:space:]]+"game/flows' || true)

only_in() {  # only_in PATTERN FOLDER: no file outside FOLDER may include what matches
  while IFS= read -r file; do
    complain "$file includes $1"
  done < <(git ls-files -co --exclude-standard '*.h' '*.cpp' | grep -vE "^$2" |
           xargs -r grep -lE "^[[:space:]]*#[[:space:]]*include[[:space:]]+<($1)" || true)
}
only_in 'curl/' '(net/|fuzz/answers.h)'
only_in 'Q[A-Z]|Qt' 'platform/qt/'
only_in 'fluidsynth' 'platform/fluidsynth/'
only_in 'SDL' '(platform/sdl|tests/cabinet)/'
only_in 'httplib' '(sandbox/server|tests/net)/'

# arrows: "from to" for each include between two modules of the product.
arrows() {
  git ls-files -co --exclude-standard '*.h' '*.cpp' | grep -vE '^(tests|bench|fuzz)/' |
    xargs sed -nE 's/^[[:space:]]*#[[:space:]]*include[[:space:]]+"([a-z0-9_\/]+)\.h".*/\1/; T; F; p' |
    sed -E 'N; s/\.(h|cpp)\n/ /' | awk '$1 != $2'
}

# without_circle WHAT: reads arrows; tsort names the members of each circle that it meets.
without_circle() {
  local said
  said=$(tsort 2>&1 >/dev/null) && return
  while IFS= read -r circle; do
    complain "a circle of $1:$circle"
  done < <(awk '/contains a loop/ { if (n++) print ""; next } { printf " %s", $2 } END { print "" }' <<<"$said")
}
without_circle modules < <(arrows)
without_circle folders < <(arrows | sed -E 's/\/[^ \/]+( |$)/\1/g' | awk '$1 != $2' | sort -u)

[ "$bad" -eq 0 ] && echo "check-layers: every include points down, and none in a circle"
exit "$bad"
