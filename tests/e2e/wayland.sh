#!/usr/bin/env bash
# Runs a program on a Wayland desktop of its own: a compositor in memory, with floating windows, frames that it draws
# itself, a panel, and a keyboard.
#   tests/e2e/wayland.sh PROGRAM [ARGUMENTS]
# Screenshots go to the folder that BRICKFALL_SCREENSHOTS names, if any. Ends with 77 where that cannot be had.
set -euo pipefail
for needed in sway wtype; do
  command -v "$needed" >/dev/null || { echo "wayland.sh: skipped, there is no $needed"; exit 77; }
done
# The compositor refuses to run as root.
as_user=()
if [ "$(id -u)" -eq 0 ]; then
  as_user=(unshare --user --map-user=1000 --map-group=1000)
  "${as_user[@]}" true || { echo "wayland.sh: skipped, root gets no user namespace here"; exit 77; }
fi
# shellcheck source=tests/e2e/private_folder.sh
. "$(dirname "$0")/private_folder.sh"
unset DISPLAY WAYLAND_DISPLAY

cat >"$folder/sway.conf" <<'CONF'
xwayland disable
output HEADLESS-1 resolution 1920x1200
for_window [app_id=".*"] floating enable
bar {
  status_command while sleep 60; do :; done
}
CONF
export SWAYSOCK=$folder/sway.sock
WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman \
  "${as_user[@]}" sway -c "$folder/sway.conf" >"$folder/sway.log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do
  [ -S "$XDG_RUNTIME_DIR/wayland-1" ] && swaymsg -t get_version >/dev/null 2>&1 && break
  sleep 0.05
done
export WAYLAND_DISPLAY=wayland-1 QT_QPA_PLATFORM=wayland
wtype -s 1000000 &  # the desktop has a keyboard for as long as somebody types
pids+=($!)
"$@"
