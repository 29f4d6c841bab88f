#!/usr/bin/env bash
# Builds the packages of the commit twice, in two folders of different names and at two times, without a cache, and
# compares them byte for byte: scripts/reproduce.sh VALUES.cmake. Takes two builds from nothing. As root the second build is
# another user's.
set -euo pipefail
if [ $# -ne 1 ] || [ ! -f "$1" ]; then
  echo "reproduce.sh: usage: scripts/reproduce.sh VALUES.cmake" >&2
  exit 2
fi
values=$(realpath -- "$1")
cd "$(dirname "$0")/.."
work=$(mktemp -d)
chmod 755 "$work"
trap 'rm -rf "$work"' EXIT
commit=$(git rev-parse HEAD)
git diff --quiet HEAD || echo "reproduce.sh: what is not committed is not built" >&2

build() {  # build FOLDER USER
  local folder=$1 as=()
  git clone -q --no-hardlinks . "$folder"
  git -C "$folder" checkout -q --detach "$commit"
  cp "$values" "$folder/values.cmake"
  if [ "$2" != "$(id -un)" ]; then
    chown -R "$2" "$folder"
    as=(runuser -u "$2" --)
  fi
  "${as[@]}" env CCACHE_DISABLE=1 HOME="$folder" "$folder/scripts/package.sh" "$folder/values.cmake" --out "$folder/made" >"$folder.log" 2>&1 ||
    { tail -n 40 "$folder.log" >&2; exit 1; }
}
other=$(id -un)
[ "$(id -u)" -ne 0 ] || other=nobody
build "$work/first" "$(id -un)"
build "$work/another-folder-of-a-longer-name" "$other"
for package in "$work"/first/made/*; do
  cmp "$package" "$work/another-folder-of-a-longer-name/made/${package##*/}"
done
cat "$work/first/made/SHA256SUMS"
echo "reproduce.sh: both builds gave the same bytes"
