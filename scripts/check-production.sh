#!/usr/bin/env bash
# Shows that nothing of the sandbox is in a production build, and that the operator's values are:
#   scripts/check-production.sh BUILD VALUES.cmake
#   scripts/check-production.sh --prove VALUES.cmake   the release build, which is the sandbox's, must be refused; and a
#                                                      configure step must refuse values, each by its name
set -euo pipefail
cd "$(dirname "$0")/.."
usage() { echo "check-production.sh: usage: scripts/check-production.sh BUILD|--prove VALUES.cmake" >&2; exit 2; }
if [ $# -ne 2 ] || [ ! -f "$2" ]; then usage; fi
values=$2

# The texts of the sandbox's own source: hosts, addresses, environment variables.
sandbox_texts() {
  sed '/^#include/d' deployment/sandbox.cpp | grep -oE '"[^"]+"' | tr -d '"' | grep -vxE 'architect|127\.0\.0\.1'
}

operator_texts() { sed -nE 's/^[^#]*set\([A-Z$][^ ]* "([^"]+)"\).*/\1/p' "$values"; }

# judge PROGRAM...: a line for each thing that must not be there, or must.
judge() {
  local program text
  for program in "$@"; do
    while IFS= read -r text; do
      ! grep -qaF -e "$text" "$program" || echo "$program holds \"$text\" of the sandbox"
    done < <(sandbox_texts; printf '%s\n' BRICKFALL_SANDBOX 'BEGIN CERTIFICATE' 'BEGIN PRIVATE KEY')
    ! grep -qaE '[a-z]\.test\b' "$program" || echo "$program holds a host of the reserved domain .test"
    { strings -n 10 "$program" | grep -E '^BRICKFALL_[A-Z]' || true; } |
      sed "s|.*|$program holds the environment variable &|"
    { nm -C --defined-only "$program" 2>/dev/null | grep -E ' brickfall::(sandbox::|SetConnectRoute)' || true; } |
      sed "s|.*|$program holds code of the sandbox: &|"
  done
  # Each value is in one program at least: a library links only what it needs.
  while IFS= read -r text; do
    grep -qaF -e "$text" "$@" || echo "the value \"$text\" is in no program"
  done < <(operator_texts)
}

programs_of() { find "$1" -maxdepth 2 -type f -name 'brickfall*' -perm -u+x ! -path '*/CMakeFiles/*' | sort; }

if [ "$1" != --prove ]; then
  mapfile -t programs < <(programs_of "$1")
  [ "${#programs[@]}" -gt 0 ] || { echo "check-production: no program in $1" >&2; exit 1; }
  said=$(judge "${programs[@]}")
  if [ -n "$said" ]; then
    echo "check-production: not fit for production:"$'\n'"$said" >&2
    exit 1
  fi
  echo "check-production: nothing of the sandbox in ${programs[*]##*/}; every value is there"
  exit
fi

# Every kind of thing is found in the sandbox's own programs.
said=$(judge build/release/cabinet/brickfall-audit)
for what in '"orvane.test"' '"12VeTRLRPbHA6hU62mXm5zQ1KaL6paFCS7"' '.test' 'variable BRICKFALL_SANDBOX_CONNECT' \
            'code of the sandbox' 'is in no program'; do
  grep -qF -e "$what" <<<"$said" || { echo "check-production: does not see $what in the sandbox's programs" >&2; exit 1; }
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
configure() {  # what it prints must name every value that it refuses
  cmake -G Ninja -S . -B "$scratch/build" -DCMAKE_BUILD_TYPE=Release -DBRICKFALL_DEPLOYMENT=production -DBRICKFALL_TESTS=OFF \
    -DBRICKFALL_PRODUCTION_VALUES="$1" 2>&1
}
refuses() {  # refuses VALUES WORD NAME...
  local output name file=$1 word=$2
  shift 2
  if output=$(configure "$file"); then echo "check-production: takes $file" >&2; return 1; fi
  for name in "$@"; do
    grep -qE "^ *$name is $word" <<<"$output" || { echo "$output"; echo "check-production: does not refuse $name as $word" >&2; return 1; }
  done
}
mapfile -t names < <(sed -nE 's/^set\(([A-Z_]+) "".*/\1/p' deployment/production.cmake.in)
refuses deployment/production.cmake.in missing "${names[@]}"

cat >"$scratch/malformed.cmake" <<'VALUES'
set(API_BASE_URL "http://api.example.com")
set(PAYMAIL_DOMAIN "Example.com")
set(PINNED_HOST_ADDRESS "192.0.2.256")
set(CHAIN_API_BASE_URL "https://chain.example.com/v1/")
set(ORDINALS_API_BASE_URL "ordinals.example.com")
set(ORDINALS_CONTENT_BASE_URL "https://ordinals.example.com/a b")
set(ARC_BROADCAST_URL "https://arc.example.com/v1/tx\"")
set(DOWNLOAD_PAGE_URL "https://")
set(ARCHITECT_HANDLE "architect@example.com")
set(ARCADE_HOUSE_ADDRESS "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMJ") # the checksum is another one
set(ARCADE_POT_ADDRESS "3J98t1WpEZ73CNmQviecrnyiWrnqRhWNLy") # pays a script
set(ARCADE_WATCH_ADDRESS "mrCDrCybB6J1vRfbwM5hemdJz73FwDBC8r") # of the test chain
set(REPORT_FEE_ADDRESS "1BgGZ9tcN4rm9KBzDn7KprQz87SZ26SAMH0")
set(REPORT_ORACLE_ADDRESS "a name")
VALUES
refuses "$scratch/malformed.cmake" malformed "${names[@]}"
refuses "$scratch/none.cmake" "" 2>/dev/null || { echo "check-production: takes a file that is not there" >&2; exit 1; }
echo "check-production: sees the sandbox in its own programs; ${#names[@]} values are refused by name, missing or malformed"
