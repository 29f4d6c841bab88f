#!/usr/bin/env bash
# Makes the packages that strangers install, and SHA256SUMS beside them:
#   scripts/package.sh VALUES.cmake [--architect-key FILE] [--out FOLDER]
# brickfall_VERSION_amd64.deb has the production programs with an operator's values; the key to which reports are sealed goes
# with it when FILE is given. brickfall-sandbox_VERSION_amd64.deb is the same cabinet with play money and its services. The
# same commit and values give the same bytes, wherever and whenever they are made: scripts/reproduce.sh shows it.
set -euo pipefail
usage() {
  echo "package.sh: $1; usage: scripts/package.sh VALUES.cmake [--architect-key FILE] [--out FOLDER]" >&2
  exit 2
}
values=''
architect_key=''
out=''
while [ $# -gt 0 ]; do
  case "$1" in
    --architect-key | --out)
      [ $# -ge 2 ] || usage "$1 needs a value"
      if [ "$1" = --out ]; then out=$(realpath -m -- "$2"); else architect_key=$(realpath -- "$2"); fi
      shift
      ;;
    -*) usage "unknown argument \"$1\"" ;;
    *) [ -z "$values" ] || usage "one file of values"; values=$(realpath -- "$1") ;;
  esac
  shift
done
[ -n "$values" ] || usage "no file of values"
[ -z "$architect_key" ] || head -n 1 -- "$architect_key" | grep -qxE '0[23][0-9a-f]{64}' ||
  { echo "package.sh: $architect_key: its first line is no compressed public key in hexadecimal" >&2; exit 2; }
cd "$(dirname "$0")/.."
. scripts/build-env.sh
# shellcheck source=packaging/programs.sh
. ./packaging/programs.sh
: "${production_programs:?}" "${sandbox_programs:?}"
out=${out:-$PWD/out/packages}
export LC_ALL=C TZ=UTC
umask 022
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
date=$(date -u -d "@$SOURCE_DATE_EPOCH" +%F)
commit=$(git rev-parse HEAD)

cmake --preset release -B build/production \
  -DBRICKFALL_DEPLOYMENT=production -DBRICKFALL_PRODUCTION_VALUES="$values"
cmake --build build/production
cmake --preset release -B build/release
mapfile -t targets < <(awk 'NF { print $1 }' <<<"$sandbox_programs")
existing=$(cmake --build build/release --target help)
for target in "${targets[@]}"; do
  grep -qE "(^| |/)$target:" <<<"$existing" && cmake --build build/release --target "$target"
done
scripts/check-production.sh build/production "$values"

version=$(build/production/cabinet/brickfall-audit --version | awk '{ print $2 }')
# value NAME: of the operator's file.
value() { sed -nE "s/^[[:space:]]*set\($1 \"([^\"]*)\"\).*/\1/p" "$values"; }

# fill IN OUT NAME=VALUE...: @NAME@ replaced; a page of the manual is packed.
fill() {
  local text name in=$1 to=$2
  shift 2
  text=$(cat "$in")
  for name in "VERSION=$version" "DATE=$date" "$@"; do text=${text//@${name%%=*}@/${name#*=}}; done
  mkdir -p "${to%/*}"
  printf '%s\n' "$text" >"$to"
}

# page_of_help PROGRAM SUMMARY: the manual of a program that tells of itself.
page_of_help() {
  local name=${1##*/}
  printf '.TH %s 1 %s "Brickfall %s" "User Commands"\n.SH NAME\n%s \\- %s\n.SH DESCRIPTION\n.nf\n' \
    "${name^^}" "$date" "$version" "$name" "$2"
  "$1" --help | sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^[.']/\\\\\&&/"
  printf '.fi\n'
}

desktop_files() {  # desktop_files PACKAGE ICON ID NAME SUMMARY MONEY PURCHASING: with icons of every usual size
  local side folder=$stage/usr/share
  for side in 16 22 24 32 48 64 96 128 256 512; do
    mkdir -p "$folder/icons/hicolor/${side}x$side/apps"
    rsvg-convert -w "$side" -h "$side" assets/logo.svg -o "$folder/icons/hicolor/${side}x$side/apps/$2.png"
  done
  install -Dm644 assets/logo.svg "$folder/icons/hicolor/scalable/apps/$2.svg"
  install -Dm644 "packaging/$1.desktop" "$folder/applications/$1.desktop"
  fill packaging/metainfo.xml.in "$folder/metainfo/$3.metainfo.xml" "PACKAGE=$1" "ID=$3" "NAME=$4" "SUMMARY=$5" "MONEY=$6" \
    "PURCHASING=$7" "HOMEPAGE=$(value DOWNLOAD_PAGE_URL)"
}

install_programs() {  # install_programs BUILD PROGRAMS: those that the build has, without what a debugger reads
  local name from folder summary
  installed=()
  while read -r name from folder summary; do
    if [ -z "$name" ] || [ ! -f "$1/$from/$name" ]; then continue; fi
    installed+=("$1/$from/$name")
    install -Dm755 "$1/$from/$name" "$stage/$folder/$name"
    strip --strip-all --remove-section=.comment --remove-section=.note "$stage/$folder/$name"
    [ "$summary" != - ] || continue
    mkdir -p "$stage/usr/share/man/man1"
    if [ -f "packaging/$name.1" ]; then
      fill "packaging/$name.1" "$stage/usr/share/man/man1/$name.1"
    else
      page_of_help "$1/$from/$name" "$summary" >"$stage/usr/share/man/man1/$name.1"
    fi
  done <<<"$2"
  scripts/check-hardening.sh "${installed[@]}"
}

# pack PACKAGE DESCRIPTION: what is staged, with what it depends on and what it is made of.
pack() {
  local package=$1 depends doc=$stage/usr/share/doc/$1 elf
  mkdir -p "$doc" "$stage/DEBIAN" "$work/debian"
  printf 'Source: brickfall\n\nPackage: %s\nArchitecture: amd64\n' "$package" >"$work/debian/control"
  mapfile -t elf < <(find "$stage/usr" -type f -perm -u+x -exec sh -c 'head -c 4 "$1" | grep -q ELF' _ {} \; -print | sort)
  depends=$(cd "$work" && dpkg-shlibdeps -O "${elf[@]}" | sed -n 's/^shlibs:Depends=//p')
  scripts/bill-of-materials.sh "$package" "$version" "$commit" "$(value DOWNLOAD_PAGE_URL)" "$doc" "${elf[@]}"
  {
    printf 'brickfall (%s) unstable; urgency=medium\n\n' "$version"
    printf '  * Built from commit %s.\n    CHANGELOG.md of the source tells what is new.\n\n' "$commit"
    printf ' -- The Brickfall maintainers <maintainers@%s>  %s\n' "$(value PAYMAIL_DOMAIN)" "$(date -R -u -d "@$SOURCE_DATE_EPOCH")"
  } >"$doc/changelog"
  gzip -9n "$doc/changelog"
  find "$stage/usr/share/man" -type f -exec gzip -9n {} +
  cat >"$stage/DEBIAN/control" <<CONTROL
Package: $package
Source: brickfall
Version: $version
Section: misc
Priority: optional
Architecture: amd64
Maintainer: The Brickfall maintainers <maintainers@$(value PAYMAIL_DOMAIN)>
Homepage: $(value DOWNLOAD_PAGE_URL)
Installed-Size: $(du -k --apparent-size -s "$stage/usr" | cut -f 1)
Depends: $depends, ca-certificates
Recommends: fonts-crosextra-caladea, fonts-inconsolata, fonts-open-sans, qt6-image-formats-plugins, qt6-wayland, timgm6mb-soundfont | fluid-soundfont-gm
Suggests: ffmpeg
Description: $2
CONTROL
  (cd "$stage" && find usr -type f -print0 | sort -z | xargs -0 md5sum >DEBIAN/md5sums)
  find "$stage" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
  mkdir -p "$out"
  dpkg-deb --root-owner-group -Zxz --build "$stage" "$out/${package}_${version}_amd64.deb" >/dev/null
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A component is known by a name of its maker's domain, read backwards.
backwards() { tr . '\n' <<<"$1" | tac | paste -sd .; }

stage=$work/brickfall
install_programs build/production "$production_programs"
mkdir -p "$stage/usr/bin"
ln -s ../lib/brickfall/brickfall "$stage/usr/bin/brickfall"
[ -z "$architect_key" ] ||
  install -Dm644 "$architect_key" "$stage/usr/lib/brickfall/userinfo/encpub-$(value ARCHITECT_HANDLE).txt"
desktop_files brickfall brickfall "$(backwards "$(value PAYMAIL_DOMAIN)").brickfall" Brickfall \
  "Play paid runs that are recorded on the chain" "A run costs 5,000 satoshis." intense
[ ! -f "$stage/usr/bin/brickfall-view" ] ||
  install -Dm644 packaging/brickfall-view.desktop "$stage/usr/share/applications/brickfall-view.desktop"
install -Dm644 packaging/completion.bash "$stage/usr/share/bash-completion/completions/brickfall-audit"
[ ! -f "$stage/usr/bin/brickfall-view" ] ||
  ln -s brickfall-audit "$stage/usr/share/bash-completion/completions/brickfall-view"
pack brickfall "arcade cabinet with runs paid for and recorded on a chain
 A brick-and-paddle game in which every run is paid for on the Bitcoin SV
 chain, and every result can be recorded there. The cabinet connects to a
 wallet of the companion application, which is not part of this package.
 .
 With it come programs that judge and show what others have recorded."

stage=$work/brickfall-sandbox
lib=$stage/usr/lib/brickfall-sandbox
install_programs build/release "$sandbox_programs"
ln -s brickfall-companion-window "$lib/Pouch.exe"
install -Dm644 scripts/session.sh "$lib/session.sh"
install -Dm755 packaging/brickfall-sandbox "$stage/usr/bin/brickfall-sandbox"
fill packaging/brickfall-sandbox.1 "$stage/usr/share/man/man1/brickfall-sandbox.1"
# The services of the sandbox hold the architect's keys, which are fixed and no secrets.
build/release/sandbox/brickfall-sandbox --folder "$work/authority" --userinfo "$lib/userinfo" --port-file "$work/port" >"$work/log" 2>&1 &
services=$!
for _ in $(seq 100); do grep -q 'sandbox ready' "$work/log" && break; sleep 0.1; done
kill "$services"
wait "$services" 2>/dev/null || true
chmod 755 "$lib/userinfo"
chmod 644 "$lib/userinfo/encpub-architect.txt"
desktop_files brickfall-sandbox brickfall-sandbox "$(backwards "$(value PAYMAIL_DOMAIN)").brickfall_sandbox" \
  "Brickfall (play money)" "Try Brickfall with play money" "This one plays with play money, on this machine alone." none
pack brickfall-sandbox "Brickfall with play money, all of it on this machine
 The cabinet of Brickfall with its companion and every service that it talks
 to, on a small chain of its own: nothing here costs anything, and nothing
 leaves the machine.
 .
 The command brickfall-sandbox starts it all."

(cd "$out" && sha256sum -- *.deb >SHA256SUMS && cat SHA256SUMS)
