#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan; every UBSan report stops the
# run) and runs each from its seeds (fuzz/seeds/<target>) plus the corpus kept in
# build/fuzz/corpus/<target>.
#
#   scripts/fuzz.sh                 short run for CI: 10 s per target
#   scripts/fuzz.sh 600             long run: 10 minutes per target
#   scripts/fuzz.sh 600 aac_        only the targets whose name matches the extended
#                                   regular expression "aac_" ('tool_|decoder$' etc.)
#
# A machine shared with others: nice -n 19 scripts/fuzz.sh 600.
# FUZZ_JOBS=N runs N targets at a time (default 1).
# At the end a table gives, per target, the executions, the coverage (libFuzzer's
# "cov" edges and "ft" features), the corpus size and the findings; crashing inputs
# are saved in build/fuzz/findings/<target>/. The exit status is 1 when anything
# was found.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
filter=${2:-}
CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZAMAC_FUZZ=ON -DZAMAC_TESTS=OFF >/dev/null
cmake --build build/fuzz -j"$(nproc)" >/dev/null
shopt -s nullglob
found=0
jobs=${FUZZ_JOBS:-1}
run_target() {
  local bin=$1 name target corpus findings log row status=0
  name=$(basename "$bin")
  target=${name#fuzz_}
  corpus=build/fuzz/corpus/$target
  findings=build/fuzz/findings/$target
  log=build/fuzz/logs/$target.log
  row=build/fuzz/logs/$target.row
  mkdir -p "$corpus" "$findings" "$(dirname "$log")"
  local seeds=()
  [ -d "fuzz/seeds/$target" ] && seeds=("fuzz/seeds/$target")
  echo "== $target (${seconds}s)"
  "$bin" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$findings/" \
      -timeout=10 -rss_limit_mb=2048 "$corpus" "${seeds[@]}" >"$log" 2>&1 || status=$?
  local execs last cov ft corp n
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  last=$(grep -E '^#[0-9]+' "$log" | tail -n 1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corp=$(sed -n 's/.* corp: \([0-9]*\/[0-9a-zA-Z]*\).*/\1/p' <<<"$last")
  n=$(ls "$findings" | wc -l)
  if [ "$status" -ne 0 ] || [ "$n" -ne 0 ]; then
    echo "!! $target:"
    grep -E 'ERROR|runtime error|SUMMARY' "$log" | head -n 5 || true
  fi
  printf '%-22s %12s %7s %7s %12s %s\n' "$target" "${execs:-?}" "${cov:-?}" "${ft:-?}" \
      "${corp:-?}" "$n" >"$row"
}
targets=()
for bin in build/fuzz/fuzz/fuzz_*; do
  name=$(basename "$bin")
  [ -z "$filter" ] || [[ "${name#fuzz_}" =~ $filter ]] || continue
  targets+=("$bin")
  rm -f "build/fuzz/logs/${name#fuzz_}.row"
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do wait -n || true; done
  run_target "$bin" &
done
wait
printf '\n%-22s %12s %7s %7s %12s %s\n' target executions cov ft corpus findings
for bin in "${targets[@]}"; do
  row=build/fuzz/logs/$(basename "$bin" | sed 's/^fuzz_//').row
  cat "$row"
  [ "$(awk '{print $NF}' "$row")" = 0 ] || found=1
done
exit $found
