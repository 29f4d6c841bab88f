#!/usr/bin/env bash
# Installs the packages of a folder on a Debian with nothing else on it, plays, and removes them again, as root:
#   scripts/install-test.sh [FOLDER], else out/packages
# The system is made once with debootstrap, in build/install-test/base. Each package is installed with what it depends on; a
# user without rights starts the cabinet on a desktop in memory and plays a paid run with play money; after the package is
# removed no file of it is left.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -- "${1:-out/packages}")
[ "$(id -u)" -eq 0 ] || { echo "install-test.sh: a system of its own can be made by root alone" >&2; exit 2; }
base=$PWD/build/install-test/base
root=$PWD/build/install-test/root
export LC_ALL=C DEBIAN_FRONTEND=noninteractive
mkdir -p "${base%/*}"

unmount() {
  for place in proc dev/shm dev; do
    ! mountpoint -q "$root/$place" || umount "$root/$place" || { sleep 2 && umount "$root/$place"; }
  done
}
trap unmount EXIT
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"; }
as_player() {
  chroot --userspec=player:player "$root" env -i PATH=/usr/local/bin:/usr/bin:/bin HOME=/home/player USER=player \
    XDG_RUNTIME_DIR=/tmp/player LANG=C.UTF-8 "$@"
}

if [ ! -f "$base/complete" ]; then
  rm -rf "$base"
  mirror=$({ cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources 2>/dev/null || true; } |
    sed -nE 's/^(deb +(\[[^]]*\] +)?|URIs: *)(https?:[^ ]+).*/\3/p' | sed -n 1p)
  debootstrap --variant=minbase --include=xvfb,xdotool,openbox,ca-certificates bookworm "$base" "${mirror:-http://deb.debian.org/debian}" \
    >"$base.log" 2>&1 || { tail "$base.log" >&2; exit 1; }
  if [ -f /etc/apt/sources.list.d/debian.sources ]; then
    cp /etc/apt/sources.list.d/debian.sources "$base/etc/apt/sources.list.d/"
    rm -f "$base/etc/apt/sources.list"
  fi
  cp /etc/apt/apt.conf.d/*proxy* "$base/etc/apt/apt.conf.d/" 2>/dev/null || true
  touch "$base/complete"
fi
unmount
rm -rf --one-file-system "$root"
cp -a "$base" "$root"
cp /etc/resolv.conf "$root/etc/"
mount --bind /dev "$root/dev"
mount -t tmpfs none "$root/dev/shm"
mount -t proc none "$root/proc"
in_root useradd -m player
in_root install -d -m 700 -o player /tmp/player
in_root apt-get update -qq

# on_desktop COMMAND: whether its window comes up, with a window manager and without a session.
cat >"$root/usr/local/bin/on_desktop" <<'DESKTOP'
#!/bin/bash
set -eu
set -m  # each program with all that it starts is a group, to be ended as one
groups=()
trap 'for group in "${groups[@]}"; do kill -- "-$group" 2>/dev/null || true; done; wait 2>/dev/null || true' EXIT
Xvfb :7 -noreset -screen 0 1600x1400x24 -nolisten tcp >/dev/null 2>&1 &
groups+=($!)
export DISPLAY=:7
for _ in $(seq 100); do xdotool getdisplaygeometry >/dev/null 2>&1 && break; sleep 0.1; done
openbox >/dev/null 2>&1 &
groups+=($!)
"$@" >/tmp/player/said 2>&1 &
program=$!
groups+=("$program")
for _ in $(seq 300); do
  xdotool search --onlyvisible --name '^Brickfall$' >/dev/null 2>&1 && { echo "the window of $1 is up"; exit; }
  kill -0 "$program" 2>/dev/null || break
  sleep 0.1
done
cat /tmp/player/said >&2
exit 1
DESKTOP
chmod 755 "$root/usr/local/bin/on_desktop"

files() { (cd "$root" && find etc opt usr var srv boot -xdev ! -path 'var/cache/*' ! -path 'var/lib/dpkg/*' ! -path 'var/lib/apt/*' \
  ! -path 'var/log/*' | sort); }
trial() {  # trial PACKAGE: installed, tried, removed
  local package=$1 deb
  deb=$(ls "$folder/${package}"_*_amd64.deb)
  cp "$deb" "$root/tmp/"
  # What it depends on stays: only the package's own files are to go.
  in_root apt-get install -y -qq --no-install-recommends "/tmp/${deb##*/}" >"$base.log" 2>&1 || { tail "$base.log" >&2; exit 1; }
  in_root dpkg -r "$package" >/dev/null
  files >"$base.before"
  in_root dpkg -i "/tmp/${deb##*/}" >/dev/null
  echo "install-test: $package is installed"
  "try_${package//-/_}"
  in_root dpkg -P "$package" >/dev/null
  files >"$base.after"
  diff "$base.before" "$base.after" || { echo "install-test: $package leaves something behind" >&2; exit 1; }
  echo "install-test: $package is removed, and nothing of it is left"
}

try_brickfall() {
  as_player brickfall-audit --version
  as_player on_desktop brickfall
}
try_brickfall_sandbox() {
  as_player brickfall-sandbox --headless --out /tmp/player/run --report "A test." >"$base.run" || { tail -n 30 "$base.run" >&2; exit 1; }
  grep -E 'All of it held|Score recorded|The same is found' "$base.run"
  as_player on_desktop brickfall-sandbox
}
trial brickfall
trial brickfall-sandbox
echo "install-test: both packages install, play and go"
