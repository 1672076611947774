#!/usr/bin/env bash
# Compares what the shared library offers in binary form with the dump of tests/abi: exported functions and objects, virtual
# tables, sizes and layouts of the types that they use. Any difference ends it with 1, and a report. The dump is that of g++ 12
# for 64 bits; on other systems nothing is compared: a line says so, and it ends with 77.
#
#   abi.sh                   try the comparison itself; build the library, with the types that a debugger shows, and compare
#   abi.sh --write           build it, and put its dump in place of the one in tests/abi
#   abi.sh --compare DUMP    compare the one in tests/abi with another dump
set -euo pipefail
. "$(dirname "$0")/help.sh"
cd "$(dirname "$0")/.."

last=tests/abi/qcfpkg.abi
new=build/abi/qcfpkg.abi

# Writes what the library of build/abi offers to the file $new, without indentation, the folder of the clone, and what is said twice.
# Interfaces whose tables are nobody's are described by the compiler only where it is told to.
dump() {
  cmake -S . -B build/abi -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_FLAGS='-g -femit-class-debug-always' -DQCF_BUILD_IMPORTER=OFF -DQCF_BUILD_ADAPTERS=OFF \
    -DQCF_BUILD_EXAMPLES=OFF -DBUILD_TESTING=OFF >/dev/null
  cmake --build build/abi --parallel "$(nproc)" --target qcfpkg >/dev/null
  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names --no-architecture --no-elf-needed \
    --no-write-default-sizes --type-id-style hash --exported-interfaces-only --drop-undefined-syms \
    --suppressions tests/abi/left-out.suppr --out-file "$new.whole" build/abi/xml/qcf/pkglib/libqcfpkg.so
  sed -E -e 's/^ +//' -e "s|^(<abi-instr .* path=')[^']*/xml/|\\1xml/|" -e "s/ mangled-name='[^']*'( [^>]*elf-symbol-id=)/\\1/" \
    -e "/^<elf-symbol name='_Z(NK?S|NK?5boost|NK?9__gnu|T[ISV]N?(S|5boost))/d" "$new.whole" >"$new"
  rm "$new.whole"
}

# compare DUMP
compare() {
  [[ -s $1 ]] || { printf 'abi.sh: no such dump: %s\n' "$1" >&2; exit 2; }
  local report status=0
  report=$(abidiff --no-show-locs --harmless "$last" "$1") || status=$?
  [[ $status -eq 0 ]] || { printf '%s\nabi: not that of %s (%d)\n' "$report" "$last" "$status"; exit 1; }
  printf 'abi: %d functions, %d types as in %s\n' "$(grep -c '^<function-decl .*elf-symbol-id' "$1")" \
    "$(grep -cE '^<(class|union|enum)-decl ' "$1")" "$last"
}

case ${1:-} in
  --compare)
    compare "${2:?a dump}"
    ;;
  --write | '')
    bash scripts/setup.sh --checks
    if [[ $(uname -m) != x86_64 || $(g++ -dumpversion) != 12* ]]; then
      printf 'abi: skipped: the dump is that of g++ 12 for x86_64\n'
      exit 77
    fi
    dump
    if [[ ${1:-} == --write ]]; then
      cp "$new" "$last"
    else
      python3 -B tests/abi/compare_test.py
      compare "$new"
    fi
    ;;
  *)
    printf 'abi.sh: no such argument: %s (try --help)\n' "$1" >&2
    exit 2
    ;;
esac
