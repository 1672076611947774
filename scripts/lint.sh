#!/usr/bin/env bash
# Static checks of what is installed, and of the programs: cppcheck (.cppcheck says what does not apply, and why) over
# everything, and clang-tidy (.clang-tidy says why each check is there), which tells the warnings of clang++ too. Then the
# library's binary interface, beside the last one (scripts/abi.sh).
#
#   lint.sh           clang-tidy over the library's one instantiation, and over what changed since the commit LINT_SINCE,
#                     the last one unless it is set
#   lint.sh --sample  clang-tidy over the instantiation, and over every eighth source: other ones with each commit
#   lint.sh --all     clang-tidy over every source, and the warnings of clang++ over tests, fuzz targets and examples
set -euo pipefail
. "$(dirname "$0")/help.sh"
cd "$(dirname "$0")/.."

bash scripts/setup.sh --tests --checks
# The commands of the preset debug, but for the headers that g++ compiled once, which clang cannot read.
cmake --preset debug -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
jobs=$(nproc)
status=0
own=(xml/\*.cpp Importers/\*.cpp Host/\*.cpp adapters/\*.cpp tools/\*.cpp)

# The sources that clang-tidy looks at, one a line. What is built elsewhere only (macOS, a check's own programs) is not
# among them: there is no command for it.
sources() {
  printf 'xml/qcf/pkglib/package/qcf_common_client.cpp\n'
  case ${1:-} in
    --all) git ls-files "${own[@]}" ;;
    --sample) git ls-files "${own[@]}" | awk -v first="$(git rev-list --count HEAD)" '(NR + first) % 8 == 0' ;;
    *) git diff --name-only --diff-filter=d "${LINT_SINCE:-HEAD~1}" -- "${own[@]}" 2>/dev/null || true ;;
  esac
}

# Prints those of the names on its input that the build has a command for.
built() {
  python3 -c '
import json, pathlib, sys
known = {str(pathlib.Path(one["directory"], one["file"]).resolve()) for one in json.load(open(sys.argv[1]))}
for name in sys.stdin.read().split():
    if str(pathlib.Path(name).resolve()) in known:
        print(name)' build/lint/compile_commands.json | sort -u
}

printf 'clang-tidy: %d sources\n' "$(sources "$@" | built | wc -l)"
sources "$@" | built | xargs -r -P "$jobs" -n 1 clang-tidy --quiet -p build/lint \
  2> >(grep -v ' warnings\? .*generated\.$' >&2) || status=1

if [[ ${1:-} == --all ]]; then
  printf 'clang++: everything else\n'
  # Its commands are those of the build, which may be g++'s.
  git ls-files 'tests/*.cpp' 'fuzz/*.cpp' 'examples/*.cpp' | built | xargs -r -P "$jobs" -n 1 clang-check -p build/lint \
    --extra-arg=-Wno-unknown-warning-option || status=1
fi

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
bash scripts/abi.sh || [[ $? -eq 77 ]] || status=1

[[ $status -ne 0 ]] || printf 'lint: clean\n'
exit "$status"
