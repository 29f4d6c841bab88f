#!/usr/bin/env bash
# Runs a program on a desktop of its own: an X server in memory and a small window manager.
#   tests/e2e/run.sh PROGRAM [ARGUMENTS]
# Screenshots go to the folder that BRICKFALL_SCREENSHOTS names, if any.
set -euo pipefail
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
[ -z "${BRICKFALL_SCREENSHOTS:-}" ] || mkdir -p "$BRICKFALL_SCREENSHOTS"

mkfifo "$folder/display"
Xvfb -displayfd 3 -screen 0 2200x1500x24 -nolisten tcp 3>"$folder/display" >/dev/null 2>&1 &
pids+=($!)
read -r number <"$folder/display"
export DISPLAY=:$number QT_QPA_PLATFORM=xcb
unset WAYLAND_DISPLAY
openbox >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 100); do
  xdotool get_num_desktops >/dev/null 2>&1 && break
  sleep 0.05
done
"$@"
