#!/usr/bin/env bash
# Builds zamac twice, normally and with AddressSanitizer + UndefinedBehaviorSanitizer,
# and runs every test in both builds.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j"$jobs"
ctest --test-dir build/release -j"$jobs" --output-on-failure

cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZAMAC_SANITIZE=ON
cmake --build build/sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize -j"$jobs" --output-on-failure
# Every fuzz target gets a short run on top of its seeds: they must build and survive.
./scripts/fuzz.sh "${ZAMAC_FUZZ_SECONDS:-5}"
echo "all tests passed (release and sanitizer builds, short fuzz runs)"
