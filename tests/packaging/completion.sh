# completion.sh PROGRAM WORD...: prints, sorted, what bash offers for the last WORD. COMPLETIONS is the folder of the
# files that it sources.
complete_words() {
  local program=$1
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  "_$program"
  [[ ${#COMPREPLY[@]} -eq 0 ]] || printf '%s\n' "${COMPREPLY[@]}" | sort
}

set -eu
for program in qsndhost qcfpkg; do . "$COMPLETIONS/$program"; done
complete -p qsndhost qcfpkg >/dev/null
set +e
complete_words "$@"
