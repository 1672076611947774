#!/usr/bin/env bash
# Builds with counters, runs the tests, and reports how many lines and branches of the system's own code they reach: the
# library, the importer, the host's parts, the adapters and the programs. Branches that the compiler makes for exceptions
# are left out. Fails below 95 per cent of lines or 85 per cent of branches.
#
#   coverage.sh            build, run, report
#   coverage.sh --report   report what the last run has left
#
# The lines that no test reaches go to build/coverage/uncovered.txt, and are counted by folder.
set -euo pipefail
. "$(dirname "$0")/help.sh"
cd "$(dirname "$0")/.."

bash scripts/setup.sh --tests --checks
if [[ ${1:-} != --report ]]; then
  find build/coverage -name '*.gcda' -delete 2>/dev/null || true
  bash scripts/test.sh coverage
fi

# What the packaging tests build are clients, and gone from where their counters say that they were.
find build/coverage/tests/packaging -name '*.gcda' -delete

status=0
gcovr --root . --object-directory build/coverage -j "$(nproc)" \
  --filter 'xml/' --filter 'Importers/' --filter 'Host/' --filter 'adapters/' --filter 'tools/' \
  --exclude-throw-branches --exclude-unreachable-branches \
  --fail-under-line 95 --fail-under-branch 85 \
  --print-summary --txt build/coverage/lines.txt --json build/coverage/coverage.json build/coverage || status=$?
gcovr --root . --add-tracefile build/coverage/coverage.json --json-summary build/coverage/summary.json
python3 - <<'END'
import collections, json, pathlib
missed = collections.Counter()
with open("build/coverage/coverage.json") as file:
    files = json.load(file)["files"]
with open("build/coverage/uncovered.txt", "w") as out:
    for one in files:
        lines = [line["line_number"] for line in one["lines"] if line["count"] == 0 and not line.get("gcovr/noncode")]
        for line in sorted(set(lines)):
            out.write(f"{one['file']}:{line}\n")
            missed[pathlib.Path(one["file"]).parts[0]] += 1
print("uncovered lines: " + ", ".join(f"{missed[folder]} in {folder}" for folder in sorted(missed)))
END
exit "$status"
