#!/usr/bin/env bash
# Runs a program on a desktop of its own: an X server in memory and a small window manager.
#   tests/e2e/run.sh PROGRAM [ARGUMENTS]
# Screenshots go to the folder that BRICKFALL_SCREENSHOTS names, if any.
set -euo pipefail
# shellcheck source=tests/e2e/private_folder.sh
. "$(dirname "$0")/private_folder.sh"

mkfifo "$folder/display"
# Without -noreset it drops everyone who is just coming whenever the last one leaves, such as a quick xdotool.
Xvfb -noreset -displayfd 3 -screen 0 2200x1500x24 -nolisten tcp 3>"$folder/display" >/dev/null 2>&1 &
pids+=($!)
read -r number <"$folder/display"
export DISPLAY=:$number QT_QPA_PLATFORM=xcb
unset WAYLAND_DISPLAY
openbox >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 200); do
  xdotool get_num_desktops >/dev/null 2>&1 && break
  sleep 0.05
done
xdotool get_num_desktops >/dev/null || { echo "run.sh: no window manager came up" >&2; exit 1; }
"$@"
