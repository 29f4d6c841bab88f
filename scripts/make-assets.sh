#!/usr/bin/env bash
# Makes the pictures that are built into the program from assets/logo.svg. Run it after a change of the drawing and
# commit what it makes.
set -euo pipefail
cd "$(dirname "$0")/.."
rsvg-convert -w 1024 -h 1024 assets/logo.svg -o assets/logo.png
for side in 256 48 32 16; do
  rsvg-convert -w "$side" -h "$side" assets/logo.svg -o "assets/icon-$side.png"
done
