#!/usr/bin/env bash
# Makes the README's pictures again, into docs/pictures/ or the folder given.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
folder=${1:-docs/pictures}
cmake --preset release >/dev/null
cmake --build --preset release --target picture_book brickfall-view
mkdir -p "$folder"
# A desktop in memory that every window fits on.
screens=$PWD/build/release/screens.json
echo '{"screens":[{"name":"desktop","x":0,"y":0,"width":2560,"height":1600,"logicalDpi":96,"logicalBaseDpi":96,"dpr":1}]}' >"$screens"
QT_QPA_PLATFORM=offscreen:configfile=$screens build/release/tools/picture_book "$folder" build/release/pictured-run.json
# Ten seconds of the run that they show, as a picture that moves.
frames=build/release/frames
rm -rf "$frames"
build/release/cabinet/brickfall-view build/release/pictured-run.json --frames "$frames" --from 530 --for 10 --size 600x480
ffmpeg -hide_banner -nostdin -loglevel error -y -framerate 60 -i "$frames/frame-%06d.png" -filter_complex \
  'fps=50,split[a][b];[a]palettegen=max_colors=128[p];[b][p]paletteuse=dither=none' "$folder/run.gif"
