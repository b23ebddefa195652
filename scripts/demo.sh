#!/usr/bin/env bash
# The main job: builds zamac and shows it at work.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)"
./build/release/tools/zamac-info/zamac-info

# The decoder built on the library: the sample streams to WAVE files, with their
# duration, format and decoding speed.
for sample in samples/*.aac; do
  ./build/release/tools/zamac-decode/zamac-decode -o "build/release/$(basename "$sample" .aac).wav" "$sample"
done
for sample in samples/*.mp3; do
  ./build/release/tools/zamac-decode/zamac-decode -o "build/release/$(basename "$sample" .mp3).wav" "$sample"
done
echo "decoded WAVE files are in build/release/"
