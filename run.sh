#!/usr/bin/env bash
# Installs what is missing, builds, starts the sandbox and the companion in a private folder, and plays on it.
#   ./run.sh [--headless] [--out DIR]
# --headless plays one whole paid run without a window and prints it. --out DIR leaves transactions.json, wallet.json,
# row.json and run.json there. The private folder is out/sandbox, or the one named by BRICKFALL_SANDBOX_HOME; a second
# run on it goes on with the same wallet and the same chain.
set -euo pipefail

usage() {
  echo "run.sh: $1; usage: ./run.sh [--headless] [--out DIR]" >&2
  exit 2
}

headless=no
out=""
while [ $# -gt 0 ]; do
  case "$1" in
    --headless) headless=yes ;;
    --out)
      [ $# -ge 2 ] || usage "--out needs a folder"
      out=$(realpath -m -- "$2")
      shift
      ;;
    *) usage "unknown argument \"$1\"" ;;
  esac
  shift
done

cd "$(dirname "$0")"
# A clone in another folder finds what ccache holds already.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
[ "$headless" = yes ] || echo "run.sh: this build has no window; playing the headless loop"

scripts/install-deps.sh
mkdir -p build
echo "run.sh: building (a first build takes some minutes; its output goes to build/run.log)"
if ! { cmake --preset release &&
       cmake --build --preset release --target brickfall-sandbox brickfall-companion headless; } >build/run.log 2>&1; then
  tail -n 40 build/run.log >&2
  echo "run.sh: the build failed; build/run.log has all of it" >&2
  exit 1
fi

home=$(realpath -m -- "${BRICKFALL_SANDBOX_HOME:-out/sandbox}")
mkdir -p "$home"
chmod 700 "$home"
build=$PWD/build/release

# One sandbox at a time works on the folder.
exec 9>"$home/run.lock"
flock -n 9 || { echo "run.sh: another run is using $home" >&2; exit 1; }

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
"$build/sandbox/brickfall-sandbox" --folder "$home/authority" --journal "$home/journal.jsonl" \
  --port-file "$home/port" >"$home/sandbox.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/sandbox.log" "sandbox ready" "${pids[0]}" "the sandbox"
BRICKFALL_SANDBOX_CONNECT="::127.0.0.1:$(cat "$home/port")"
BRICKFALL_SANDBOX_CA=$(sed -n 's/^sandbox ready on .*, authority //p' "$home/sandbox.log" | tail -n 1)
export BRICKFALL_SANDBOX_CONNECT BRICKFALL_SANDBOX_CA

"$build/sandbox/brickfall-companion" --auto-approve --create-on-connect --name player \
  >"$home/companion.log" 2>&1 9>&- &
pids+=($!)
wait_for "$home/companion.log" "companion ready" "${pids[1]}" "the companion"

"$build/tools/headless" ${out:+--out "$out"} 9>&-
