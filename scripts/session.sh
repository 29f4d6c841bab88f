# shellcheck shell=bash
# A session of the sandbox: its services, the companion and the cabinet; or one paid run without a window; or the viewer on
# its board; or an audit of the session that is open. For a script to source, with its arguments behind it, that has set
#   command                    how it is called, for what is said
#   services, cabinet, tools   the folders of the programs
#   home                       the private folder of the session
#   prepare                    a function, called with the names of the programs once the folder is this session's own
: "${command:?}" "${services:?}" "${cabinet:?}" "${tools:?}" "${home:?}"

usage() {
  echo "${command##*/}: $1; usage: $command [--headless [--out DIR] [--report TEXT] | --watch ... | --audit ...]" >&2
  exit 2
}

headless=no
audit=no
watch=no
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
    --watch)
      watch=yes
      shift
      break
      ;;
    *) usage "unknown argument \"$1\"" ;;
  esac
  shift
done

[ "$headless" = yes ] || [ "${#arguments[@]}" -eq 0 ] || usage "--out and --report go with --headless"
if [ "$headless$audit$watch" = nonono ] && [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  echo "${command##*/}: there is no display; playing the headless loop"
  headless=yes
fi

if [ "$headless" = yes ]; then
  programs=(brickfall-sandbox brickfall-companion headless brickfall-audit)
  [ -z "$out" ] || programs+=(brickfall-view)
elif [ "$watch" = yes ]; then
  programs=(brickfall-sandbox brickfall-view)
else
  programs=(brickfall-sandbox brickfall-companion-window brickfall brickfall-audit brickfall-view)
fi
mkdir -p "$home"
chmod 700 "$home"

# route: the programs find the sandbox that works on the folder.
route() {
  BRICKFALL_SANDBOX_CONNECT="::127.0.0.1:$(cat "$home/port")"
  BRICKFALL_SANDBOX_CA=$(sed -n 's/^sandbox ready on .*, authority //p' "$home/sandbox.log" | tail -n 1)
  export BRICKFALL_SANDBOX_CONNECT BRICKFALL_SANDBOX_CA
}

if [ "$audit" = yes ]; then
  if [ ! -x "$cabinet/brickfall-audit" ] || { flock -n "$home/run.lock" true && [[ " $* " != *" --file "* ]]; }; then
    echo "${command##*/}: there is no sandbox to audit; start $command first, and leave it open" >&2
    exit 2
  fi
  [ -f "$home/port" ] && route
  exec "$cabinet/brickfall-audit" "$@"
fi

# The board of a session that is open; else the sandbox is started for it below.
if [ "$watch" = yes ] && [ -x "$cabinet/brickfall-view" ] && ! flock -n "$home/run.lock" true; then
  route
  exec "$cabinet/brickfall-view" "$@"
fi

# One sandbox at a time works on the folder. A cabinet that runs on it is raised; without a display the program does
# that and nothing else.
exec 9>"$home/run.lock"
if ! flock -n 9; then
  if [ "$headless" = no ] && [ -x "$cabinet/brickfall" ] &&
     env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$cabinet/brickfall" 2>/dev/null 9>&-; then
    exit 0
  fi
  echo "${command##*/}: another run is using $home" >&2
  exit 1
fi

prepare "${programs[@]}"

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
  echo "${command##*/}: $4 did not come up; its output:" >&2
  cat "$1" >&2
  exit 1
}

# An installed program has the architect's key beside it already.
userinfo=()
[ ! -w "$cabinet" ] || userinfo=(--userinfo "$cabinet/userinfo" --userinfo "$tools/userinfo")

export LOCALAPPDATA=$home/store
"$services/brickfall-sandbox" --folder "$home/authority" --journal "$home/journal.jsonl" --seed-board "${userinfo[@]}" \
  --port-file "$home/port" >"$home/sandbox.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/sandbox.log" "sandbox ready" "${pids[0]}" "the sandbox"
route

if [ "$watch" = yes ]; then
  "$cabinet/brickfall-view" "$@" 9>&-
  exit
fi

if [ "$headless" = no ]; then
  export BRICKFALL_SANDBOX_RUN=$$  # a companion that the cabinet starts anew ends with this
  "$services/brickfall-companion-window" player >"$home/companion.log" 2>&1 9>&- &
  pids+=($!)
  wait_for "$home/companion.log" "companion ready" "${pids[1]}" "the companion"
  "$cabinet/brickfall" 9>&-
  exit
fi

"$services/brickfall-companion" --auto-approve --create-on-connect --name player \
  >"$home/companion.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/companion.log" "companion ready" "${pids[1]}" "the companion"
evidence=${out:-$home/audit}
"$tools/headless" --audit "$evidence" "${arguments[@]}" 9>&- | tee "$home/headless.log"
if [ -n "$out" ]; then
  record=$(sed -n '/^ *6\.  Record/,/^ *7\./s/^ *transaction  *//p' "$home/headless.log")
  "$cabinet/brickfall-view" "$record" --poster "$out/poster.png" 9>&-
fi

echo
echo "The sandbox is stopped; the board once more, from the local list alone:"
kill "${pids[0]}"
wait "${pids[0]}" 2>/dev/null || true
"$tools/headless" --board 9>&-

echo
echo "The audit once more, from $evidence/evidence.json alone:"
# It ends with 1 where a row is unsound, as rows of the sandbox are.
"$cabinet/brickfall-audit" --file "$evidence/evidence.json" --json >"$home/audit-again.json" 9>&- || [ $? -eq 1 ]
if ! cmp -s "$home/audit-again.json" "$evidence/audit.json"; then
  echo "${command##*/}: $home/audit-again.json tells something else than $evidence/audit.json" >&2
  exit 1
fi
echo "     The same is found with the network off, row by row."
