#!/usr/bin/env bash
# Fuzzes every target for its share of the time, and reports executions, and how many of the code's
# edges were reached.
#
#   fuzz.sh [MINUTES] [TARGET...]    one minute a target without a number
#
# Inputs are collected in build/fuzz/corpus/. A finding stays in build/fuzz/findings/: it becomes a
# file in fuzz/regressions/TARGET/, which the tests replay. Findings are, beside what the sanitizers see, an
# input that takes over five seconds, and one that makes the heap grow by more than 64 MiB and four times
# its own size (fuzz/Fuzzer.cpp).
set -euo pipefail
. "$(dirname "$0")/help.sh"
. "$(dirname "$0")/scratch.sh"
cd "$(dirname "$0")/.."

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
cmake --build --preset fuzz --parallel "$(nproc)" --target fuzzers >build/fuzz-build.log ||
  { cat build/fuzz-build.log; exit 1; }
python3 fuzz/make_seeds.py build/fuzz/corpus
mkdir -p build/fuzz/findings

# Targets that work on files do so away from the user's cache.
use_scratch 4
export XDG_CACHE_HOME=$scratch

# of LOG NAME: the last of libFuzzer's numbers of that name
of() { sed -n "s/^stat::$2: *//p" "$1" | tail -n 1; }

seconds=$((minutes * 60 / ${#targets[@]}))
failing=()
total=0
found=0
row='%-12s %12s %16s %10s %12s %10s\n'
printf "$row" target executions edges findings 'slowest (s)' 'peak (MB)'
for target in "${targets[@]}"; do
  case $target in
    properties) dictionary=fuzz/dictionaries/properties.dict ;;
    *) dictionary=fuzz/dictionaries/zip.dict ;;
  esac
  log=build/fuzz/$target.log
  before=$(find build/fuzz/findings -name "$target-*" | wc -l)
  ASAN_OPTIONS=allocator_may_return_null=0 LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0 \
    build/fuzz/fuzz/fuzz_"$target" \
    -dict="$dictionary" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 -max_len=65536 \
    -artifact_prefix="build/fuzz/findings/$target-" -print_final_stats=1 \
    build/fuzz/corpus/"$target" fuzz/regressions/"$target" >"$log" 2>&1 || failing+=("$target")
  executions=$(of "$log" number_of_executed_units)
  reached=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  edges=$(sed -n 's/.* PC tables (\([0-9]*\) PCs).*/\1/p' "$log" | head -n 1)
  coverage="${reached:-none} of ${edges:-none}"
  findings=$(($(find build/fuzz/findings -name "$target-*" | wc -l) - before))
  total=$((total + ${executions:-0}))
  found=$((found + findings))
  printf "$row" "$target" "${executions:-none}" "$coverage" "$findings" \
    "$(of "$log" slowest_unit_time_sec)" "$(of "$log" peak_rss_mb)"
done
printf '%d executions of %d targets in %d minutes, %d findings\n' "$total" "${#targets[@]}" "$minutes" "$found"

# What there is to see of a failure, its input with it: the machine may be gone when somebody looks.
for target in "${failing[@]}"; do
  printf '\n%s failed:\n' "$target"
  grep -v '^#[0-9]' "build/fuzz/$target.log" | tail -n 40
  find build/fuzz/findings -name "$target-*" -size -16k -newer build/fuzz-build.log -exec base64 {} \;
done
[[ ${#failing[@]} -eq 0 ]]
