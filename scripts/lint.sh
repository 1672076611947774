#!/usr/bin/env bash
# Static checks of what is installed, and of the programs: cppcheck (.cppcheck says what does not apply, and why) over
# everything, and clang-tidy (.clang-tidy says why each check is there), which tells the warnings of clang++ too. Then the
# warnings of clang++ over tests, fuzz targets, benchmarks and examples, and the library's binary interface, beside the last
# one (scripts/abi.sh).
#
#   lint.sh           the library's one instantiation, and what changed since the commit LINT_SINCE, the last one unless it is
#                     set
#   lint.sh --sample  the instantiation, and every eighth source: other ones with each commit
#   lint.sh --all     every source
set -euo pipefail
. "$(dirname "$0")/help.sh"
cd "$(dirname "$0")/.."

bash scripts/setup.sh --tests --checks
# The commands of the preset debug, but for the headers that g++ compiled once, which clang cannot read.
cmake --preset debug -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DQCF_BUILD_BENCHMARKS=ON >/dev/null
jobs=$(nproc)
status=0
own=(xml/\*.cpp xml/\*.mm Importers/\*.cpp Host/\*.cpp adapters/\*.cpp tools/\*.cpp)
others=(tests/\*.cpp fuzz/\*.cpp benchmarks/\*.cpp examples/\*.cpp)
which=${1:-}

# sources PATTERN...: those to look at now, one a line.
sources() {
  case $which in
    --all) git ls-files "$@" ;;
    --sample) git ls-files "$@" | awk -v first="$(git rev-list --count HEAD)" '(NR + first) % 8 == 0' ;;
    *) git diff --name-only --diff-filter=d "${LINT_SINCE:-HEAD~1}" -- "$@" 2>/dev/null || true ;;
  esac
}

# Prints those of the names on its input that the build has a command for, and tells the others: what is built elsewhere only
# (macOS, a check's own programs) has none.
built() {
  python3 -c '
import json, pathlib, sys
known = {str(pathlib.Path(one["directory"], one["file"]).resolve()) for one in json.load(open(sys.argv[1]))}
for name in sys.stdin.read().split():
    if str(pathlib.Path(name).resolve()) in known:
        print(name)
    else:
        print(name, "is not built here, and not looked at", file=sys.stderr)' build/lint/compile_commands.json | sort -u
}

wanted=$({ printf 'xml/qcf/pkglib/package/qcf_common_client.cpp\n'; sources "${own[@]}"; } | sort -u)
tidied=$(built <<<"$wanted")
left=$(($(wc -l <<<"$wanted") - $(wc -l <<<"$tidied")))
printf 'clang-tidy: %d sources\n' "$(wc -l <<<"$tidied")"
# The headers of Objective-C come with g++.
xargs -r -P "$jobs" -n 1 clang-tidy --quiet -p build/lint --extra-arg=-idirafter \
  --extra-arg="$(g++ -print-file-name=include)" <<<"$tidied" 2> >(grep -v ' warnings\? .*generated\.$' >&2) || status=1

# Its commands are those of the build, which may be g++'s.
warned=$(sources "${others[@]}" | built)
printf 'clang++: %d sources\n' "$(grep -c . <<<"$warned")"
xargs -r -P "$jobs" -n 1 clang-check -p build/lint --extra-arg=-Wno-unknown-warning-option <<<"$warned" || status=1

# cppcheck does not read the macros of the tests' library: it looks at what is installed, and the programs.
printf 'cppcheck: everything\n'
mkdir -p build/cppcheck
python3 -c '
import json, pathlib, sys
with open(sys.argv[1]) as file:
    commands = json.load(file)
own = [str(pathlib.Path(folder).resolve()) + "/" for folder in ("xml", "Importers", "Host", "adapters", "tools")]
print(json.dumps([one for one in commands if any(one["file"].startswith(folder) for folder in own)]))' \
  build/lint/compile_commands.json >build/cppcheck/compile_commands.json
cppcheck --project=build/cppcheck/compile_commands.json --quiet --inline-suppr --error-exitcode=1 -j "$jobs" \
  --enable=warning,performance,portability --suppressions-list=.cppcheck --suppress='*:/usr/*' || status=1

printf 'abidiff: the shared library\n'
compared=0
bash scripts/abi.sh || compared=$?
[[ $compared -eq 0 || $compared -eq 77 ]] || status=1

[[ $status -ne 0 ]] || printf 'lint: clean, %d sources left out that are not built here%s\n' "$left" \
  "$([[ $compared -eq 0 ]] || printf ', the binary interface not compared')"
exit "$status"
