#!/usr/bin/env bash
# Builds the programs and shows an import on this machine.
#
#   demo.sh             makes two sound documents, one stored and one deflated, and imports both
#   demo.sh FILE.qsnd   imports that document
#
# The audio ends up in demo-output/, and is compared with what went into the document. waveform.png and
# waveform-dark.png there are pictures of it.
set -euo pipefail
. "$(dirname "$0")/help.sh"

fail() {
  printf 'demo.sh: %s\n' "$1" >&2
  exit "${2:-1}"
}

document=
case ${1-} in
  -*) fail "no such option: $1 (try --help)" 2 ;;
  ?*)
    [[ -r $1 ]] || fail "cannot read $1" 2
    document=$(realpath -- "$1")
    ;;
esac
[[ $# -le 1 ]] || fail "one document at a time, please" 2

cd "$(dirname "$0")/.."
project=$PWD
build=$project/build/demo
qsndhost=$build/bin/qsndhost
output=$project/demo-output
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build_programs() {
  bash scripts/setup.sh || fail "not everything that the build needs is installed; see above"
  # A build folder of its own: what the tests are built with stays as it is.
  cmake --preset release -B "$build" -DBUILD_TESTING=OFF -DQCF_BUILD_EXAMPLES=OFF -DQCF_BUILD_BENCHMARKS=OFF &&
    cmake --build "$build" --parallel "$(nproc)" --target qsndhost || fail "the build failed; see above"
}

# make_audio OUT.wav: a slow chord of plucked strings, five seconds in stereo, 48 kHz, 24 bits.
make_audio() {
  sox -R -D -n -r 48000 -b 24 "$1" \
    synth 5 pluck C3 pluck G3 pluck B3 pluck E4 pluck G4 pluck D5 delay 0 0.15 0.3 0.45 0.6 0.75 \
    remix 1,3,5 2,4,6 trim 0 5 fade 0 5 2 gain -n -3 || fail "sox could not make $1"
}

# make_document OUT.qsnd AUDIO.wav LEVEL: the type comes first and is stored; LEVEL is zip's, and 0 stores the audio too.
make_document() {
  printf 'application/x-qsnd' >"$work/mimetype"
  cp "$2" "$work/Mixdown.wav"
  rm -f "$1"
  (cd "$work" && zip -q -X -0 "$1" mimetype && zip -q -X "-$3" "$1" Mixdown.wav) || fail "zip could not make $1"
}

# describe_samples FILE.wav: rate, channels and frames.
describe_samples() {
  printf '%s Hz, %s channels, %s frames' "$(soxi -V1 -r "$1")" "$(soxi -V1 -c "$1")" "$(soxi -V1 -s "$1")"
}

# Samples of up to 24 bits, and floats (25 for sox), come out of a float file as they went in.
compare_audio() {
  local source=$1 imported=$2 precision
  soxi -V1 "$source" >/dev/null || fail "sox cannot read the audio in the document: it is not compared"
  [[ $(describe_samples "$imported") == "$(describe_samples "$source")" ]] ||
    fail "$imported has $(describe_samples "$imported"), its source $(describe_samples "$source")"
  precision=$(soxi -V1 -p "$source")
  if [[ $precision -gt 25 ]]; then
    printf '  length and layout are as in the document; samples of %s bits are not compared\n' "$precision"
    return
  fi
  sox -V1 -D "$source" -t raw -e signed -b 24 "$work/source.raw" || fail "sox could not read $source"
  sox -V1 -D "$imported" -t raw -e signed -b 24 "$work/imported.raw" || fail "sox could not read $imported"
  cmp "$work/source.raw" "$work/imported.raw" || fail "$imported differs from the audio in the document"
  printf '  every sample is as in the document\n'
}

# import_document FILE.qsnd: tells what is in it, and leaves the audio in the file `imported`.
import_document() {
  imported=$output/$(basename "${1%.qsnd}").imported.wav
  printf '\n'
  "$qsndhost" info "$1" || fail "qsndhost could not import $1"
  rm -f "$imported"
  "$qsndhost" export "$1" "$imported" || fail "qsndhost could not export the audio of $1"
  printf '  audio: %s\n' "$imported"
}

# draw_document FILE.qsnd: pictures of its audio, for light pages and for dark ones.
draw_document() {
  "$qsndhost" waveform "$1" "$output/waveform.png" --width 840 &&
    "$qsndhost" waveform "$1" "$output/waveform-dark.png" --width 840 --theme dark ||
    fail "qsndhost could not draw $1"
  printf '  picture: %s\n' "$output/waveform.png"
}

# import_made NAME LEVEL: a document with the audio of this demo, made and imported.
import_made() {
  make_document "$output/$1.qsnd" "$output/source.wav" "$2"
  import_document "$output/$1.qsnd"
  compare_audio "$output/source.wav" "$imported"
}

build_programs
mkdir -p "$output"
printf '\nThe importer offers:\n'
"$qsndhost" formats || fail "qsndhost could not load the importer"
if [[ -n $document ]]; then
  import_document "$document"
  draw_document "$document"
  unzip -p "$document" Mixdown.wav >"$work/source.wav" ||
    fail "unzip could not read Mixdown.wav in $document: the audio is not compared"
  compare_audio "$work/source.wav" "$imported"
else
  make_audio "$output/source.wav"
  import_made stored 0
  import_made deflated 9
  draw_document "$output/stored.qsnd"
fi
printf '\nDone: all of it is in %s\n' "$output"
