#!/usr/bin/env bash
# Fuzzes every target for its share of the time, and reports executions and coverage.
#
#   fuzz.sh [MINUTES] [TARGET...]    one minute a target without a number
#
# Inputs are collected in build/fuzz/corpus/. A finding stays in build/fuzz/findings/: it becomes a
# file in fuzz/regressions/TARGET/, which the tests replay. No input may take five seconds, or make
# memory grow by more than 64 MiB at once.
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  --help)
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$0"
    exit 0
    ;;
esac
all=(documents packages updates properties paths hex tool)
minutes=${#all[@]}
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
  minutes=$1
  shift
fi
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=("${all[@]}")

bash scripts/setup.sh --tests
cmake --preset fuzz >build/fuzz-configure.log || { cat build/fuzz-configure.log; exit 1; }
cmake --build --preset fuzz --parallel "$(nproc)"
python3 fuzz/make_seeds.py build/fuzz/corpus
mkdir -p build/fuzz/findings

seconds=$((minutes * 60 / ${#targets[@]}))
failed=0
printf '%-12s %14s %10s %10s\n' target executions coverage findings
for target in "${targets[@]}"; do
  case $target in
    properties) dictionary=fuzz/dictionaries/properties.dict ;;
    *) dictionary=fuzz/dictionaries/zip.dict ;;
  esac
  log=build/fuzz/$target.log
  findings=build/fuzz/findings/$target-
  before=$(find build/fuzz/findings -name "$target-*" | wc -l)
  ASAN_OPTIONS=allocator_may_return_null=0 build/fuzz/fuzz/fuzz_"$target" \
    -dict="$dictionary" -max_total_time="$seconds" -timeout=5 -malloc_limit_mb=64 -rss_limit_mb=2048 \
    -max_len=65536 -artifact_prefix="$findings" -print_final_stats=1 \
    build/fuzz/corpus/"$target" fuzz/regressions/"$target" >"$log" 2>&1 || failed=1
  after=$(find build/fuzz/findings -name "$target-*" | wc -l)
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  coverage=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  printf '%-12s %14s %10s %10s\n' "$target" "${executions:-none}" "${coverage:-none}" "$((after - before))"
done
exit "$failed"
