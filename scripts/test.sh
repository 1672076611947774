#!/usr/bin/env bash
# Installs what is missing, builds everything with one preset and runs its tests.
#
#   test.sh                          the preset debug, all tests
#   test.sh PRESET                   release, debug, asan, m32 or coverage
#   test.sh [PRESET] -- ARGUMENT...  ARGUMENTs go to ctest, such as -R CentralDirectory
set -euo pipefail
. "$(dirname "$0")/help.sh"
. "$(dirname "$0")/scratch.sh"
cd "$(dirname "$0")/.."

preset=debug
if [[ $# -gt 0 && $1 != -- ]]; then
  case $1 in
    release | debug | asan | m32 | coverage) preset=$1 ;;
    *)
      printf 'test.sh: no such preset: %s (release, debug, asan, m32 or coverage)\n' "$1" >&2
      exit 2
      ;;
  esac
  shift
fi
if [[ $# -gt 0 && $1 != -- ]]; then
  printf 'test.sh: what goes to ctest comes after --, not: %s\n' "$1" >&2
  exit 2
fi
[[ $# -eq 0 ]] || shift

needs=(--tests)
[[ $preset != m32 ]] || needs+=(--m32)
bash scripts/setup.sh "${needs[@]}"

jobs=$(nproc)
cmake --preset "$preset"
cmake --build --preset "$preset" --parallel "$jobs"
# Packages beyond 4 GB belong on a disk.
[[ -n ${QCF_LONG_TESTS-} ]] || use_scratch 4
# Many a test waits, for a clock or for another program.
ctest --preset "$preset" --parallel "$((jobs + 1))" "$@"
