#!/usr/bin/env bash
# Installs what the build needs from Debian, and only what is missing.
# As root with apt-get, else through sudo; where neither is possible it names the packages and stops.
# With --pages also what makes and tests pages that replay runs in a browser.
set -euo pipefail

packages=(
  g++ binutils cmake ninja-build ccache pkg-config
  clang lld llvm-14 clang-format clang-tidy libclang-rt-14-dev cppcheck shellcheck
  libcurl4-openssl-dev libssl-dev nlohmann-json3-dev libcpp-httplib-dev
  libgtest-dev libbenchmark-dev librapidcheck-dev
  qt6-base-dev qt6-wayland libxcb1-dev zlib1g-dev qt6-image-formats-plugins fonts-open-sans fonts-crosextra-caladea fonts-inconsolata
  xvfb openbox xdotool x11-utils x11-xkb-utils sway wtype librsvg2-bin
  libfluidsynth-dev timgm6mb-soundfont libqrencode-dev ffmpeg
  libsdl2-dev
  ca-certificates openssl dpkg-dev lintian appstream desktop-file-utils jq
)

if [ "${1:-}" = "--pages" ]; then
  packages+=(clang-14 lld-14 wasi-libc libc++-14-dev-wasm32 libc++abi-14-dev-wasm32 libclang-rt-14-dev-wasm32 chromium firefox-esr)
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$package")
done
[ "${#missing[@]}" -gt 0 ] || exit 0

if ! command -v apt-get >/dev/null 2>&1; then
  echo "install-deps: this is no Debian system; please install: ${missing[*]}" >&2
  exit 1
fi
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "install-deps: neither root nor sudo; please install: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "install-deps: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
