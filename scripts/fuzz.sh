#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a while.
# Usage: scripts/fuzz.sh [seconds per target, default 10] [target name filter]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
filter=${2:-}
CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZAMAC_FUZZ=ON -DZAMAC_TESTS=OFF >/dev/null
cmake --build build/fuzz -j"$(nproc)"
shopt -s nullglob
for bin in build/fuzz/fuzz/fuzz_*; do
  name=$(basename "$bin")
  [ -n "$filter" ] && [[ "$name" != *"$filter"* ]] && continue
  corpus=build/fuzz/corpus/$name
  mkdir -p "$corpus"
  seeds=()
  [ -d "fuzz/seeds/${name#fuzz_}" ] && seeds=("fuzz/seeds/${name#fuzz_}")
  echo "== $name (${seconds}s)"
  "$bin" -max_total_time="$seconds" -print_final_stats=0 "$corpus" "${seeds[@]}" 2>&1 | tail -n 2
done
