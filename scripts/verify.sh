#!/usr/bin/env bash
# Everything that takes too long for .ci/run, whole: hours. Each step's output goes to build/verify/STEP.log, what became of
# it to STEP.result. A step whose log lacks a count has failed, however it ended.
#
#   verify.sh                  every step
#   verify.sh STEP...          some: tests walk mutations audio crashes sanitizers threads m32 darwin fuzz lint
#                              abi coverage valgrind
#   verify.sh --docs [STEP...] also puts what they counted into the table of docs/reliability.md
#   FUZZ_MINUTES=5 verify.sh fuzz                  a shorter one
#   VALGRIND_SUITES='unit_*' verify.sh valgrind    some suites
set -euo pipefail
. "$(dirname "$0")/help.sh"
. "$(dirname "$0")/scratch.sh"
cd "$(dirname "$0")/.."

logs=build/verify
bin=build/debug/tests
jobs=$(nproc)
steps=(tests walk mutations audio crashes sanitizers threads m32 darwin fuzz lint abi coverage valgrind)

# build PRESET [TARGET...]
build() {
  cmake --preset "$1"
  cmake --build --preset "$1" --parallel "$jobs" ${2:+--target "${@:2}"}
}

# in_parts COMMAND...: a test program, its tests dealt out to as many processes as there are processors.
in_parts() {
  local part status=0 parts=()
  for ((part = 0; part < jobs; ++part)); do
    GTEST_TOTAL_SHARDS=$jobs GTEST_SHARD_INDEX=$part "$@" >"$TMPDIR/part$part" 2>&1 &
    parts+=($!)
  done
  for part in "${parts[@]}"; do
    wait "$part" || status=1
  done
  cat "$TMPDIR"/part*
  rm "$TMPDIR"/part*
  return "$status"
}

# All suites with everything that they leave out otherwise, packages beyond 4 GB; but what `crashes` tries whole.
run_tests() {
  env -u TMPDIR QCF_LONG_TESTS=1 bash scripts/test.sh debug -- \
    --exclude-regex '(Program(Crash|PowerCut|ReadingTraced|ReadingShort|Shortage)|LibraryCrash|Kill)[.]'
}
run_walk() {
  build debug random_walk
  QCF_WALK_SEQUENCES=100000 $bin/walk/random_walk
}
run_mutations() {
  build asan mutation_tests reading_robustness_tests
  export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
  QSND_MUTATIONS=200000 build/asan/tests/plugin/mutation_tests
  QCF_MUTATIONS=200000 build/asan/tests/unit/reading/reading_robustness_tests
}
run_audio() {
  build debug audio_comparison_tests
  QSND_RANDOM_STRETCHES=10000 $bin/plugin/audio_comparison_tests
}
# The kills are 500 each of qcfpkg add, remove and compact.
run_crashes() {
  export QCF_LONG_TESTS=1
  build debug crash_library crash_programs qcfpkg_tests failures failures_allocation plugin_session_faults
  in_parts $bin/crash/crash_programs
  in_parts $bin/tools/qcfpkg/qcfpkg_tests --gtest_filter='*Kill*'
  in_parts $bin/crash/crash_library
  in_parts $bin/failures/failures
  in_parts $bin/failures/failures_allocation
  in_parts $bin/plugin/plugin_session_faults
}
run_sanitizers() { bash scripts/test.sh asan; }
run_threads() {
  cmake --preset tsan
  cmake --build --preset tsan --parallel "$jobs" --target threads_packages threads_importers unit_package
  ctest --preset tsan --verbose -R 'Threads|Singletons|Mutual'
}
run_m32() { bash scripts/test.sh m32; }
run_darwin() { bash scripts/check-darwin.sh; }
run_fuzz() { bash scripts/fuzz.sh "${FUZZ_MINUTES:-60}"; }
run_lint() { bash scripts/lint.sh --all; }
run_abi() { bash scripts/abi.sh; }
run_coverage() { bash scripts/coverage.sh; }
# The suites of the code of library and importer; the others start programs, or are about time. Allocations that fail are those of the
# suites' own operator new, which stays in its place.
run_valgrind() {
  local suites suite
  bash scripts/setup.sh --tests --checks
  build debug tests/unit/all tests/failures/all tests/plugin/all
  mapfile -d '' -t suites < <(
    find $bin/unit $bin/failures -maxdepth 3 -type f -executable -name "${VALGRIND_SUITES:-*}" -print0
    for suite in audio_handler_tests sound_document_tests importer_tests; do
      find $bin/plugin -maxdepth 1 -name "$suite" -name "${VALGRIND_SUITES:-*}" -print0
    done)
  for suite in "${suites[@]}"; do
    printf '=== %s\n' "$suite"
    valgrind --quiet --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite \
      --suppressions=tests/valgrind.supp --soname-synonyms=somalloc=nouserintercepts "$suite" \
      --gtest_filter='-*Race*:*Death*:*Mutation*:*Timing*'
  done
  printf 'valgrind: %d suites\n' "${#suites[@]}"
}

page=()
if [[ ${1:-} == --docs ]]; then
  page=(docs/reliability.md)
  [[ -z ${FUZZ_MINUTES-}${VALGRIND_SUITES-} ]] || { printf 'verify.sh: a part of a step is not for the documentation\n' >&2; exit 2; }
  shift
fi
[[ $# -gt 0 ]] && steps=("$@")
mkdir -p "$logs"
use_scratch 4
for step in "${steps[@]}"; do
  declare -F "run_$step" >/dev/null || { printf 'verify.sh: no such step: %s\n' "$step" >&2; exit 2; }
done
rm -f "$logs"/*.result
revision=$(git describe --always --dirty=+)
for step in "${steps[@]}"; do
  printf '=== %s (%d s so far)\n' "$step" "$SECONDS"
  begin=$SECONDS
  status=0
  # A shell of its own: here, -e would not hold within the function.
  export -f build in_parts "run_$step"
  bin=$bin jobs=$jobs bash -euo pipefail -c "run_$step" >"$logs/$step.log" 2>&1 </dev/null || status=$?
  printf '%d %d %s %s\n' "$status" $((SECONDS - begin)) "$(date -u +%F)" "$revision" >"$logs/$step.result"
  [[ $status -eq 0 ]] || tail -n 30 "$logs/$step.log"
done
python3 scripts/reliability.py "$logs" "${page[@]}"
