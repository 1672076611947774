#!/usr/bin/env bash
# Static checks: the warnings of clang++, clang-tidy (.clang-tidy says why each check is there) and cppcheck.
#
#   lint.sh         cppcheck over everything; clang-tidy, which has the compiler's warnings too, over the library's one
#                   instantiation, and over what changed since the commit LINT_SINCE, the last one unless it is set
#   lint.sh --all   clang-tidy over every source
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  --help)
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$0"
    exit 0
    ;;
esac
bash scripts/setup.sh --tests --checks
cmake --preset debug >/dev/null
jobs=$(nproc)
status=0

# The sources that clang-tidy looks at, one a line. What is built elsewhere only (macOS, a check's own programs) is not
# among them: there is no command for it.
sources() {
  if [[ ${1:-} == --all ]]; then
    git ls-files '*.cpp'
  else
    printf 'xml/qcf/pkglib/package/qcf_common_client.cpp\n'
    git diff --name-only --diff-filter=d "${LINT_SINCE:-HEAD~1}" -- '*.cpp' 2>/dev/null || true
  fi | sort -u
}

# Prints those of the names on its input that the build has a command for.
built() {
  python3 -c '
import json, pathlib, sys
known = {str(pathlib.Path(one["directory"], one["file"]).resolve()) for one in json.load(open(sys.argv[1]))}
for name in sys.stdin.read().split():
    if str(pathlib.Path(name).resolve()) in known:
        print(name)' build/debug/compile_commands.json
}

printf 'clang-tidy: %d sources\n' "$(sources "$@" | built | wc -l)"
sources "$@" | built | xargs -r -P "$jobs" -n 1 clang-tidy --quiet -p build/debug \
  2> >(grep -v ' warnings\? .*generated\.$' >&2) || status=1

printf 'cppcheck: everything\n'
cppcheck --project=build/debug/compile_commands.json --quiet --inline-suppr --error-exitcode=1 -j "$jobs" \
  --enable=warning,performance,portability --suppressions-list=.cppcheck --suppress='*:/usr/*' \
  --suppress="*:$PWD/build/*" --suppress="*:$PWD/tests/*" || status=1

[[ $status -ne 0 ]] || printf 'lint: clean\n'
exit "$status"
