#!/usr/bin/env bash
# Makes the pictures that are built into the program from assets/logo.svg, in assets/ or the folder given. Run it after
# a change of the drawing and commit what it makes.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:-assets}
mkdir -p "$folder"
rsvg-convert -w 1024 -h 1024 assets/logo.svg -o "$folder/logo.png"
for side in 256 48 32 16; do
  rsvg-convert -w "$side" -h "$side" assets/logo.svg -o "$folder/icon-$side.png"
done
