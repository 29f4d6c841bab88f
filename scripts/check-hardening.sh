#!/usr/bin/env bash
# Reads programs with their debug information, and names what each lacks of the protections of cmake/hardening.cmake:
#   scripts/check-hardening.sh [PROGRAM...]    the release build's programs, or the named ones
#   scripts/check-hardening.sh --prove         plants a program without each protection, and must find every one
set -euo pipefail
shopt -s inherit_errexit

# lacks PROGRAM: a line for each protection that it is without.
lacks() {
  local header segments dynamic symbols units
  header=$(readelf -hW "$1")
  segments=$(readelf -lW "$1")
  dynamic=$(readelf -dW "$1")
  symbols=$(readelf -W --dyn-syms "$1")
  units=$(readelf -W --debug-dump=info --dwarf-depth=1 "$1" 2>/dev/null | grep -E 'DW_AT_producer.*GNU C' || true)

  grep -q 'DYN (Position-Independent Executable file)' <<<"$header" || echo "PIE"
  grep -q 'GNU_RELRO' <<<"$segments" || echo "RELRO"
  grep -q 'BIND_NOW' <<<"$dynamic" || echo "immediate binding"
  grep -qE 'GNU_STACK.* RW +0x' <<<"$segments" || echo "a stack that is not executable"
  grep -qE '\((RPATH|RUNPATH)\)' <<<"$dynamic" && echo "freedom from RPATH"
  grep -qE ' __[a-z]+[a-z_]*_chk(@|$)' <<<"$symbols" || echo "FORTIFY"
  grep -q ' __stack_chk_fail' <<<"$symbols" || echo "the stack protector"

  # What leaves no trace that could be counted on stands in what each unit was compiled with.
  [ -n "$units" ] || { echo "debug information of GCC's, which tells how its units were compiled"; return; }
  local flag undone
  while read -r flag undone; do
    grep -qvE -e "$flag( |=|\$)" <<<"$units" || grep -q -e "$undone" <<<"$units" && echo "$flag in each unit"
  done <<'FLAGS'
-fstack-protector-strong -fno-stack-protector
-fstack-clash-protection -fno-stack-clash-protection
-fcf-protection -fcf-protection=none
FLAGS
  return 0
}

check() {  # check PROGRAM...
  local program all missing bad=0
  for program in "$@"; do
    all=$(lacks "$program")
    while IFS= read -r missing; do
      [ -n "$missing" ] || continue
      echo "check-hardening: $program lacks $missing" >&2
      bad=1
    done <<<"$all"
  done
  [ "$bad" -eq 0 ] && echo "check-hardening: nothing is missing in $# program(s)"
  return "$bad"
}

# Each row: what must be missed, and the flags that take it away.
prove() {
  local folder full flags missed without
  folder=$(mktemp -d)
  # shellcheck disable=SC2064
  trap "rm -rf '$folder'" EXIT
  cat >"$folder/planted.cpp" <<'SOURCE'
#include <cstdio>
#include <cstring>
int main(int count, char** words) {
    char text[16];
    std::strcpy(text, words[count - 1]);
    std::printf("%s\n", text);
}
SOURCE
  # shellcheck disable=SC2054
  full=(-g1 -O2 -fPIE -pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -fstack-protector-strong -fstack-clash-protection
        -fcf-protection -D_FORTIFY_SOURCE=2)
  g++ "${full[@]}" "$folder/planted.cpp" -o "$folder/whole"
  check "$folder/whole"
  while IFS=: read -r missed flags; do
    # shellcheck disable=SC2086
    g++ "${full[@]}" $flags "$folder/planted.cpp" -o "$folder/planted"
    without=$(lacks "$folder/planted")
    if ! grep -qxF -- "$missed" <<<"$without"; then
      echo "check-hardening: does not see what lacks $missed; it says: $without" >&2
      return 1
    fi
    echo "check-hardening: sees what lacks $missed"
  done <<'ROWS'
PIE:-fno-pie -no-pie
RELRO:-Wl,-z,norelro
immediate binding:-Wl,-z,lazy
a stack that is not executable:-Wl,-z,execstack
freedom from RPATH:-Wl,-rpath,/opt/lib
FORTIFY:-U_FORTIFY_SOURCE
the stack protector:-fno-stack-protector -U_FORTIFY_SOURCE
-fstack-protector-strong in each unit:-fno-stack-protector
-fstack-clash-protection in each unit:-fno-stack-clash-protection
-fcf-protection in each unit:-fcf-protection=none
debug information of GCC's, which tells how its units were compiled:-s
ROWS
}

case "${1:-}" in
  --prove) prove ;;
  "")
    cd "$(dirname "$0")/../build/release"
    mapfile -t programs < <(find cabinet sandbox -maxdepth 1 -type f -name 'brickfall*' -perm -u+x | sort)
    check "${programs[@]}"
    ;;
  *) check "$@" ;;
esac
