#!/usr/bin/env bash
# Measures how the export of many documents scales with processors, and prints a table for docs/many-documents.md.
#
#   measure-many.sh [COUNT] [SECONDS]   COUNT documents (200) of SECONDS of stereo at 48 kHz (10)
#
# Uses the programs in QSND_BIN, by default build/release/bin.
set -euo pipefail
cd "$(dirname "$0")/.."

count=${1:-200}
seconds=${2:-10}
bin=$(realpath "${QSND_BIN:-build/release/bin}")
folder=$(mktemp -d "${TMPDIR:-/tmp}/measure-many.XXXXXX")
trap 'rm -rf "$folder"' EXIT

fail() {
  printf 'measure-many.sh: %s\n' "$1" >&2
  exit 2
}
[[ -x $bin/qsndhost ]] || fail "no program in $bin: build the preset release first, or set QSND_BIN"
command -v parallel >/dev/null || fail "GNU parallel is missing: apt-get install parallel"
command -v sox >/dev/null || fail "sox is missing: apt-get install sox"
export PATH=$bin:$PATH

# make_documents FOLDER OPTION...: all of the same content, each a file of its own.
make_documents() {
  local to=$folder/$1
  shift
  mkdir "$to"
  qsndhost make --quiet "$folder/audio.wav" "$to/0.qsnd" "$@"
  for ((i = 1; i < count; ++i)); do cp "$to/0.qsnd" "$to/$i.qsnd"; done
}

# timed COMMAND...: runs it with fresh outputs, checks that all are there, and sets `elapsed` in milliseconds.
timed() {
  rm -rf "$folder/waves"
  mkdir "$folder/waves"
  local start
  start=$(date +%s%N)
  "$@"
  elapsed=$((($(date +%s%N) - start) / 1000000))
  local done
  done=$(find "$folder/waves" -name '*.wav' | wc -l)
  [[ $done -eq $count ]] || fail "$done of $count documents were exported"
}

documents() { find "$folder/$kind" -name '*.qsnd' -print0; }
one_by_one() { documents | parallel -0 -j "$jobs" qsndhost export --quiet {} "$folder/waves/{/.}.wav"; }
in_batches() { documents | parallel -0 -j "$jobs" -n 20 qsndhost export --quiet --folder "$folder/waves" {}; }

# row TEXT WAY: a line of the table, with the speed-up over one job.
row() {
  local first=0
  for jobs in $(seq 1 "$(nproc)"); do
    timed "$2"
    [[ $first -ne 0 ]] || first=$elapsed
    awk -v text="$1" -v jobs="$jobs" -v ms="$elapsed" -v first="$first" -v count="$count" 'BEGIN {
      printf "| %s | %d | %.1f s | %.0f | %.2f |\n", text, jobs, ms / 1000, count * 1000 / ms, first / ms }'
  done
}

sox -n -r 48000 -c 2 -b 16 "$folder/audio.wav" synth "$seconds" pinknoise pinknoise
make_documents stored
make_documents deflated --deflate

printf '%d documents of %d s, %s, load %s before\n\n' "$count" "$seconds" \
  "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | sort | uniq -c | sed 's/^ *\([0-9]*\) /\1 × /')" \
  "$(cut -d' ' -f1 /proc/loadavg)"
printf '| documents | jobs | time | documents a second | against one job |\n|---|---|---|---|---|\n'
for kind in stored deflated; do
  row "$kind, one a program" one_by_one
  row "$kind, 20 a program" in_batches
done
