#!/usr/bin/env bash
# Fuzzes every target for its share of the time, and reports executions, and how many of the code's
# edges were reached.
#
#   fuzz.sh [MINUTES] [TARGET...]    one minute a target without a number
#
# hex and paths, which are tiny and quick, get a twentieth of the time each, at least 5 seconds; the others share the rest.
# Inputs have up to 64 KiB. packages, documents and tool spend a tenth of their time, at least 5 seconds, on inputs of up to
# 8 MiB.
#
# Inputs are collected in build/fuzz/corpus/. A finding stays in build/fuzz/findings/: it becomes a
# file in fuzz/regressions/TARGET/, which the tests replay. Findings are, beside what the sanitizers see, an
# input of whatever size that takes over five seconds of the processor, or over thirty by the clock, and one that makes the
# heap grow by more than 64 MiB and four times its own size (fuzz/Limits.h). Time counts as it passes here, with sanitizers,
# which slow everything down; that of the processor without what other processes take.
#
# When a target is done two lines tell of it:
#
#   fuzz target NAME: EXECUTIONS executions, COVERED of ALL edges, slowest N ms, peak M MB
#   fuzz target NAME by the clock: slowest N ms
#
# EXECUTIONS is libFuzzer's count, the seeds among them. COVERED is the last "cov" that it tells, ALL the size of its tables:
# edges of every instrumented object in the program and in what it loads at its start, the target itself among them. N and M
# come from fuzz/Fuzzer.cpp: the slowest input's time, of the processor or by the clock, and the most that the heap grew while
# one input was worked on, both rounded up, in MB of 2^20 bytes. A number that was not told is 0. The last line has the sum of
# all targets, and that of those that are not tiny.
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

is_tiny() { [[ $1 == hex || $1 == paths ]]; }
is_tried_large() { [[ $1 == packages || $1 == documents || $1 == tool ]]; }

# divide_time TARGET...: sets `tiny_seconds` and `other_seconds`, what a tiny target and any other has.
divide_time() {
  local whole=$((minutes * 60)) tiny=0 target
  for target in "$@"; do ! is_tiny "$target" || tiny=$((tiny + 1)); done
  local others=$(($# - tiny))
  tiny_seconds=$((others > 0 ? whole / 20 : whole / tiny))
  tiny_seconds=$((tiny_seconds > 5 ? tiny_seconds : 5))
  other_seconds=$((others > 0 ? (whole - tiny * tiny_seconds) / others : 0))
}

# sum NAME LOG..., most NAME LOG...: of libFuzzer's and our own numbers of that name
numbers() { sed -n "s/^stat::$1: *//p" "${@:2}"; }
sum() { numbers "$@" | awk '{ n += $1 } END { print n + 0 }'; }
most() { numbers "$@" | sort -n | tail -n 1; }

# covered LOG..., all_edges LOG...
covered() { sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$@" | sort -n | tail -n 1; }
all_edges() { sed -n 's/.* PC tables (\([0-9]*\) PCs).*/\1/p' "$@" | sort -n | tail -n 1; }

# fuzz TARGET SECONDS LOG OPTIONS-AND-FOLDERS...
fuzz() {
  local target=$1 seconds=$2 log=$3
  shift 3
  case $target in
    documents | packages | updates | tool) set -- -dict=fuzz/dictionaries/zip.dict "$@" ;;
    properties) set -- -dict=fuzz/dictionaries/properties.dict "$@" ;;
  esac
  ASAN_OPTIONS=allocator_may_return_null=0 LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0 \
    build/fuzz/fuzz/fuzz_"$target" -max_total_time="$seconds" -rss_limit_mb=2048 \
    -artifact_prefix="build/fuzz/findings/$target-" -print_final_stats=1 "$@" >"$log" 2>&1 || failing+=("$log")
}

# fuzz_large TARGET SECONDS LOG: with inputs of up to 8 MiB. What is made of them is not kept: it would fill the disk.
fuzz_large() {
  mkdir "$scratch/$1-large"
  fuzz "$@" -max_len=8388608 -len_control=0 "$scratch/$1-large" "build/fuzz/corpus/$1-large"
  rm -r "${scratch:?}/$1-large"
}

# tell TARGET LOG...
tell() {
  local target=$1 executions reached edges slowest peak
  shift
  executions=$(sum number_of_executed_units "$@") reached=$(covered "$@") edges=$(all_edges "$@")
  slowest=$(most slowest_ms "$@") peak=$(most heap_growth_mb "$@")
  total=$((total + executions))
  is_tiny "$target" || substantial=$((substantial + executions))
  printf 'fuzz target %s: %d executions, %d of %d edges, slowest %d ms, peak %d MB\n' "$target" "$executions" \
    "${reached:-0}" "${edges:-0}" "${slowest:-0}" "${peak:-0}"
  printf 'fuzz target %s by the clock: slowest %d ms\n' "$target" "$(most slowest_by_clock_ms "$@")"
}

findings() { find build/fuzz/findings -type f | wc -l; }

divide_time "${targets[@]}"
failing=()
total=0 substantial=0
before=$(findings)
begun=$SECONDS
for target in "${targets[@]}"; do
  is_tiny "$target" && seconds=$tiny_seconds || seconds=$other_seconds
  logs=(build/fuzz/"$target".log)
  if is_tried_large "$target"; then
    large_seconds=$((seconds > 50 ? seconds / 10 : 5))
    seconds=$((seconds - large_seconds))
    logs+=(build/fuzz/"$target"-large.log)
    fuzz_large "$target" "$large_seconds" "${logs[1]}"
  fi
  fuzz "$target" "$seconds" "${logs[0]}" -max_len=65536 build/fuzz/corpus/"$target" \
    fuzz/regressions/"$target"
  tell "$target" "${logs[@]}"
done
printf '%d executions of %d targets (%d without hex and paths) in %d minutes, %d findings\n' "$total" "${#targets[@]}" \
  "$substantial" $(((SECONDS - begun + 30) / 60)) $(($(findings) - before))

# What there is to see of a failure, its input with it: the machine may be gone when somebody looks.
for log in "${failing[@]}"; do
  printf '\n%s tells of a failure:\n' "$log"
  grep -v '^#[0-9]' "$log" | tail -n 40
done
find build/fuzz/findings -type f -size -16k -newer build/fuzz-build.log -print -exec base64 {} \;
[[ ${#failing[@]} -eq 0 ]]
