# shellcheck shell=bash
# A folder of its own for a desktop, as a user's home, for a script to source. It goes at the end, and so do the
# programs whose numbers stand in pids. Screenshots go to the folder that BRICKFALL_SCREENSHOTS names, if any.
folder=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$folder"
}
trap cleanup EXIT
export XDG_RUNTIME_DIR=$folder/runtime XDG_CONFIG_HOME=$folder/config XDG_CACHE_HOME=$folder/cache HOME=$folder
mkdir -p "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME" "$XDG_CACHE_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
# Nobody's message bus. Where none is named, the libraries below the windows fork to start one, and under a sanitizer
# the child may wait for a lock that another thread of its parent held at that moment.
export DBUS_SESSION_BUS_ADDRESS=disabled:
[ -z "${BRICKFALL_SCREENSHOTS:-}" ] || mkdir -p "$BRICKFALL_SCREENSHOTS"
