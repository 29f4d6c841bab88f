#!/usr/bin/env bash
# Plays the runs of tests/determinism.sh, and replays the golden runs, as other machines do: 64 bits of ARM and RISC-V,
# big-endian, 32 bits; and replays the golden runs as a browser does, as WebAssembly. Where a compiler or an emulator is
# missing, it names what to install and is skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/build-env.sh
declare -A emulators=([aarch64]=qemu-aarch64 [riscv64]=qemu-riscv64 [s390x]=qemu-s390x [i686]=qemu-i386)
work=build/architectures
cache=$(command -v ccache || true)
mkdir -p "$work"

# The module of the pages has the same sources and flags; it has no files and no threads, so runs are not played there.
replay_wasm() {
  local compiler=clang++-14 host
  command -v $compiler >/dev/null || compiler=clang++
  for host in wasmtime node ''; do
    command -v "$host" >/dev/null && break
  done
  if [ -z "$host" ] || ! "$compiler" --target=wasm32-wasi -std=c++20 -Os -fno-exceptions -Wall -Wextra -Werror -I. \
    tests/programs/golden_text.cpp game/{simulation,input_tape,replay}.cpp base/text.cpp -o "$work/wasm32.run" \
    2>"$work/wasm32.log"; then
    echo "architectures: wasm32 skipped, for want of ${host:+a Clang for it}${host:-wasmtime or node}; on Debian 12:"
    echo "  scripts/install-deps.sh --pages; apt-get install --no-install-recommends nodejs"
    return 0
  fi
  local run=(wasmtime "$work/wasm32.run")
  [ "$host" = node ] && run=(node --no-warnings --experimental-wasi-unstable-preview1 -e '
    const host = new (require("wasi").WASI)({ version: "preview1" });
    WebAssembly.instantiate(require("fs").readFileSync(process.argv[1]), { wasi_snapshot_preview1: host.wasiImport })
      .then(made => { process.exitCode = host.start(made.instance); });' "$work/wasm32.run")
  cat tests/golden/*.run >"$work/kept.golden"
  "${run[@]}" <"$work/kept.golden" >"$work/wasm32.golden"
  cmp "$work/kept.golden" "$work/wasm32.golden" || { echo "architectures: wasm32 disagrees" >&2; return 1; }
  echo "architectures: wasm32 replays $(find tests/golden -name '*.run' | wc -l) runs as they are kept, in $host"
}
replay_wasm

for name in "${!emulators[@]}"; do
  for program in "$name-linux-gnu-g++" "${emulators[$name]}"; do
    command -v "$program" >/dev/null && continue
    echo "architectures: skipped, for want of $program; on Debian 12:"
    echo "  apt-get install --no-install-recommends qemu-user g++-{aarch64,riscv64,s390x,i686}-linux-gnu"
    exit 0
  done
done
rm -f "$work"/*.digest

# One unit, so that the headers are read once; libstdc++ linked in, so that no foreign file is looked for.
printf '#include "%s"\n' tests/programs/golden_runs.cpp game/{simulation,input_tape,run_control,replay}.cpp \
  base/{text,clock}.cpp >"$work/unit.cpp"

play() {  # play NAME COMPILER [EMULATOR]
  $cache "$2" -std=c++20 -O2 -Wall -Wextra -Werror -I. -c "$work/unit.cpp" -o "$work/$1.o"
  "$2" -static "$work/$1.o" -o "$work/$1.run"
  ${3:-} "$work/$1.run" --play >"$work/$1.digest"
  ${3:-} "$work/$1.run" tests/golden >"$work/$1.golden" || { cat "$work/$1.golden" >&2; return 1; }
}

# Two at a time.
export -f play
export work cache
{
  echo "here g++"
  for name in "${!emulators[@]}"; do echo "$name $name-linux-gnu-g++ ${emulators[$name]}"; done
} | xargs -P 2 -L 1 bash -euc 'play "$@"' play

failed=0
for digest in "$work"/*.digest; do
  cmp -s "$work/here.digest" "$digest" || { diff "$work/here.digest" "$digest" | head -n 6; failed=1; }
done
[ "$failed" -eq 0 ] || { echo "architectures: they disagree" >&2; exit 1; }
echo "architectures: ${!emulators[*]} play $(wc -l <"$work/here.digest") runs as this machine does," \
  "and replay $(find tests/golden -name '*.run' | wc -l) as they are kept"
