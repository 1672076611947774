#!/usr/bin/env bash
# Builds with counters, runs the tests, and reports how many lines and branches of the system's own code they reach: the
# library, the importer, the host's parts, the adapters and the programs. Branches that the compiler makes for exceptions
# are left out. Fails below 95 per cent of lines or 85 per cent of branches, and where a line that no test reaches is not among
# those that have been looked at (tests/unreached.txt).
#
#   coverage.sh            build, run, report
#   coverage.sh --library  of the library alone, by the tests of its units and of its failures: minutes
#   coverage.sh --report   report what the last whole run has left
#
# The lines that no test reaches go to build/coverage/unreached.txt, and are counted by folder.
set -euo pipefail
. "$(dirname "$0")/help.sh"
. "$(dirname "$0")/scratch.sh"
cd "$(dirname "$0")/.."

folders=(xml Importers Host adapters tools)
looked_at=tests/unreached.txt

forget() { find build/coverage -name '*.gcda' -delete 2>/dev/null || true; }

run_library() {
  local suites suite
  folders=(xml)
  looked_at=
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage --parallel "$(nproc)" --target tests/unit/all tests/failures/all | tail -n 1
  use_scratch 4
  mapfile -d '' -t suites < <(find build/coverage/tests/unit build/coverage/tests/failures -type f -executable -print0)
  for suite in "${suites[@]}"; do "$suite" --gtest_brief=1; done
}

bash scripts/setup.sh --tests --checks
case ${1:-} in
  '') forget && bash scripts/test.sh coverage ;;
  --library) forget && run_library ;;
  --report) ;;
  *)
    printf 'coverage.sh: no such argument: %s (try --help)\n' "$1" >&2
    exit 2
    ;;
esac

# What the packaging tests build are clients, and gone from where their counters say that they were.
find build/coverage -path '*/tests/packaging/*' -name '*.gcda' -delete

status=0
gcovr --root . --object-directory build/coverage -j "$(nproc)" "${folders[@]/#/--filter=}" \
  --exclude-throw-branches --exclude-unreachable-branches \
  --fail-under-line 95 --fail-under-branch 85 \
  --print-summary --txt build/coverage/lines.txt --json build/coverage/coverage.json build/coverage || status=$?
gcovr --root . --add-tracefile build/coverage/coverage.json --json-summary build/coverage/summary.json
python3 scripts/unreached.py build/coverage/coverage.json build/coverage/unreached.txt $looked_at || status=1
exit "$status"
