#!/usr/bin/env bash
# Installs what is missing, builds, starts the sandbox in a private folder, and opens the cabinet and the companion on it.
#   ./run.sh                                          the cabinet; closing it ends everything. A second one
#                                                     raises the first
#   ./run.sh --headless [--out DIR] [--report TEXT]   one whole paid run without a window, printed
#   ./run.sh --watch [ARGUMENTS]                      brickfall-view on the sandbox's board, of a run that is open or
#                                                     else on the sandbox alone; --watch --help tells of its arguments
#   ./run.sh --audit [ARGUMENTS]                      brickfall-audit on the sandbox of a run that is open;
#                                                     --audit --help tells of its arguments
# Without a display the headless run is played. --out DIR leaves transactions.json, wallet.json, row.json, run.json,
# audit.json, evidence.json and poster.png there; --report sends TEXT to the architect and prints what was read. The private folder is out/sandbox, or the one
# named by BRICKFALL_SANDBOX_HOME; a second run on it goes on with the same wallet and the same chain. What happens then
# is told in scripts/session.sh.
set -euo pipefail

command=./run.sh
root=$(dirname "$(realpath -- "$0")")
build=$root/build/release
# shellcheck disable=SC2034  # for the session
services=$build/sandbox cabinet=$build/cabinet tools=$build/tools
home=$(realpath -m -- "${BRICKFALL_SANDBOX_HOME:-$root/out/sandbox}")

# In a shell of its own: the session stays in the folder that it was called from. 9 is the session's lock.
prepare() (
  cd "$root"
  . scripts/build-env.sh
  scripts/install-deps.sh 9>&-
  mkdir -p build
  echo "run.sh: building (a first build takes some minutes; its output goes to build/run.log)"
  if ! { cmake --preset release && cmake --build --preset release --target "$@"; } >build/run.log 2>&1 9>&-; then
    tail -n 40 build/run.log >&2
    echo "run.sh: the build failed; build/run.log has all of it" >&2
    exit 1
  fi
)

. "$root/scripts/session.sh"
