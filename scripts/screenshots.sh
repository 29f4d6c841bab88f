#!/usr/bin/env bash
# Makes the README's pictures again, into docs/pictures/ or the folder given.
set -euo pipefail
cd "$(dirname "$0")/.."
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
folder=${1:-docs/pictures}
cmake --preset release >/dev/null
cmake --build --preset release --target picture_book
mkdir -p "$folder"
build/release/tools/picture_book "$folder"
