#!/usr/bin/env bash
# Builds zamac twice, normally and with AddressSanitizer + UndefinedBehaviorSanitizer,
# runs every test in both builds (the examples included), builds the API reference
# (failing on an undocumented export), then gives every fuzz target a short run.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc)
phase() { echo "== $1 (at ${SECONDS}s)"; }

phase "release build"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j"$jobs"
phase "release tests"
ctest --test-dir build/release -j"$jobs" --output-on-failure

# Light optimisation and line tables only: the sanitizers need no more, and the
# build stays quick.
phase "API reference"
./scripts/docs.sh build/docs

phase "sanitizer build"
cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=None -DZAMAC_SANITIZE=ON \
      -DCMAKE_C_FLAGS="-O1 -g1" -DCMAKE_CXX_FLAGS="-O1 -g1"
cmake --build build/sanitize -j"$jobs"
phase "sanitizer tests"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize -j"$jobs" --output-on-failure

phase "fuzz targets"
FUZZ_JOBS=${FUZZ_JOBS:-$(nproc)} ./scripts/fuzz.sh "${ZAMAC_FUZZ_SECONDS:-4}"
phase "done"
echo "all tests passed (release and sanitizer builds, short fuzz runs)"
