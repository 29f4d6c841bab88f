#!/usr/bin/env bash
# Installs what is missing, builds, starts the sandbox in a private folder, and opens the cabinet and the companion on it.
#   ./run.sh                                          the cabinet; closing it ends everything. A second one
#                                                     raises the first
#   ./run.sh --headless [--out DIR] [--report TEXT]   one whole paid run without a window, printed
#   ./run.sh --audit [ARGUMENTS]                      brickfall-audit on the sandbox of a run that is open;
#                                                     --audit --help tells of its arguments
# Without a display the headless run is played. --out DIR leaves transactions.json, wallet.json, row.json, run.json,
# audit.json and evidence.json there; --report sends TEXT to the architect and prints what was read. The private folder is out/sandbox, or the one
# named by BRICKFALL_SANDBOX_HOME; a second run on it goes on with the same wallet and the same chain.
set -euo pipefail

usage() {
  echo "run.sh: $1; usage: ./run.sh [--headless [--out DIR] [--report TEXT] | --audit ...]" >&2
  exit 2
}

headless=no
audit=no
out=
arguments=()
while [ $# -gt 0 ]; do
  case "$1" in
    --headless) headless=yes ;;
    --out)
      [ $# -ge 2 ] || usage "--out needs a folder"
      out=$(realpath -m -- "$2")
      arguments+=(--out "$out")
      shift
      ;;
    --report)
      [ $# -ge 2 ] || usage "--report needs a text"
      arguments+=(--report "$2")
      shift
      ;;
    --audit)
      audit=yes
      shift
      break
      ;;
    *) usage "unknown argument \"$1\"" ;;
  esac
  shift
done

from=$PWD
cd "$(dirname "$0")"
. scripts/build-env.sh
[ "$headless" = yes ] || [ "${#arguments[@]}" -eq 0 ] || usage "--out and --report go with --headless"
if [ "$headless$audit" = nono ] && [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "run.sh: there is no display; playing the headless loop"
  headless=yes
fi

if [ "$headless" = yes ]; then
  targets=(brickfall-sandbox brickfall-companion headless brickfall-audit)
else
  targets=(brickfall-sandbox brickfall-companion-window brickfall brickfall-audit)
fi
home=$(realpath -m -- "${BRICKFALL_SANDBOX_HOME:-out/sandbox}")
mkdir -p "$home"
chmod 700 "$home"
build=$PWD/build/release

# route: the programs find the sandbox that works on the folder.
route() {
  BRICKFALL_SANDBOX_CONNECT="::127.0.0.1:$(cat "$home/port")"
  BRICKFALL_SANDBOX_CA=$(sed -n 's/^sandbox ready on .*, authority //p' "$home/sandbox.log" | tail -n 1)
  export BRICKFALL_SANDBOX_CONNECT BRICKFALL_SANDBOX_CA
}

if [ "$audit" = yes ]; then
  if [ ! -x "$build/cabinet/brickfall-audit" ] || { flock -n "$home/run.lock" true && [[ " $* " != *" --file "* ]]; }; then
    echo "run.sh: there is no sandbox to audit; start ./run.sh first, and leave it open" >&2
    exit 2
  fi
  [ -f "$home/port" ] && route
  cd "$from"
  exec "$build/cabinet/brickfall-audit" "$@"
fi

# One sandbox at a time works on the folder. A cabinet that runs on it is raised; without a display the program does
# that and nothing else.
exec 9>"$home/run.lock"
if ! flock -n 9; then
  if [ "$headless" = no ] && [ -x "$build/cabinet/brickfall" ] &&
     env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$build/cabinet/brickfall" 2>/dev/null 9>&-; then
    exit 0
  fi
  echo "run.sh: another run is using $home" >&2
  exit 1
fi

scripts/install-deps.sh 9>&-
mkdir -p build
echo "run.sh: building (a first build takes some minutes; its output goes to build/run.log)"
if ! { cmake --preset release &&
       cmake --build --preset release --target "${targets[@]}"; } >build/run.log 2>&1 9>&-; then
  tail -n 40 build/run.log >&2
  echo "run.sh: the build failed; build/run.log has all of it" >&2
  exit 1
fi

pids=()
stop_all() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
}
trap stop_all EXIT
trap 'exit 130' INT TERM

# wait_for FILE PATTERN PID WHAT: until a line of FILE matches, the process ends, or half a minute is over.
wait_for() {
  for _ in $(seq 300); do
    grep -q -- "$2" "$1" 2>/dev/null && return 0
    kill -0 "$3" 2>/dev/null || break
    sleep 0.1
  done
  echo "run.sh: $4 did not come up; its output:" >&2
  cat "$1" >&2
  exit 1
}

export LOCALAPPDATA=$home/store
"$build/sandbox/brickfall-sandbox" --folder "$home/authority" --journal "$home/journal.jsonl" --seed-board \
  --userinfo "$build/cabinet/userinfo" --userinfo "$build/tools/userinfo" \
  --port-file "$home/port" >"$home/sandbox.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/sandbox.log" "sandbox ready" "${pids[0]}" "the sandbox"
route

if [ "$headless" = no ]; then
  export BRICKFALL_SANDBOX_RUN=$$  # a companion that the cabinet starts anew ends with this
  "$build/sandbox/brickfall-companion-window" player >"$home/companion.log" 2>&1 9>&- &
  pids+=($!)
  wait_for "$home/companion.log" "companion ready" "${pids[1]}" "the companion"
  "$build/cabinet/brickfall" 9>&-
  exit
fi

"$build/sandbox/brickfall-companion" --auto-approve --create-on-connect --name player \
  >"$home/companion.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/companion.log" "companion ready" "${pids[1]}" "the companion"
evidence=${out:-$home/audit}
"$build/tools/headless" --audit "$evidence" "${arguments[@]}" 9>&-

echo
echo "The sandbox is stopped; the board once more, from the local list alone:"
kill "${pids[0]}"
wait "${pids[0]}" 2>/dev/null || true
"$build/tools/headless" --board 9>&-

echo
echo "The audit once more, from $evidence/evidence.json alone:"
# It ends with 1 where a row is unsound, as rows of the sandbox are.
"$build/cabinet/brickfall-audit" --file "$evidence/evidence.json" --json >"$home/audit-again.json" 9>&- || [ $? -eq 1 ]
if ! cmp -s "$home/audit-again.json" "$evidence/audit.json"; then
  echo "run.sh: $home/audit-again.json tells something else than $evidence/audit.json" >&2
  exit 1
fi
echo "     The same is found with the network off, row by row."
