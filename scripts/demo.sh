#!/usr/bin/env bash
# The main job: builds zamac and shows it at work.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)"
./build/release/tools/zamac-info/zamac-info
