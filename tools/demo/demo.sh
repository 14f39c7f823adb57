#!/usr/bin/env bash
# Reads the digits of the sample pictures with the model that ships, and counts the right answers. Then tunes the model
# for this machine, and shows that it reads the same in less time. At last it reads a page of text with the other model.
#
# usage: demo.sh QRT    the built command-line tool
set -euo pipefail

if (($# != 1)) || [[ ! -x $1 ]]; then
  echo "usage: demo.sh QRT, where QRT is the built command-line tool" >&2
  exit 2
fi
qrt=$(realpath "$1")
readonly qrt
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
readonly root
readonly digits=$root/models/digits
readonly model=$digits/digits.qrtmodel
readonly lines=$root/models/lines
readonly passes=20

# Block characters need UTF-8; a bare environment has a locale that doesn't say so.
if [[ $(locale charmap 2>/dev/null) != UTF-8 ]] && [[ ${TERM:-dumb} != linux ]] &&
  locale -a 2>/dev/null | grep -qix 'c\.utf-\?8'; then
  export LC_ALL=C.UTF-8
fi

# best_of TEXT: the answer behind the rank " 1. " in what qrt run has printed; empty for none
best_of() {
  sed -n 's/^\(.*[^0-9]\)\{0,1\} 1\. \([^ ]*\) .*/\2/p' <<<"$1"
}

right=0
wrong=()
declare -A answers
# read_picture PICTURE DIGIT [OPTION...]: runs the model, and compares its answer
read_picture() {
  local picture=$1 digit=$2 shown answer verdict
  shown=$("$qrt" run "$model" --input "$digits/samples/$picture" "${@:3}" \
    --top 3 --labels "$digits/labels.txt" --preview --preview-width 20 --repeat "$passes")
  answer=$(best_of "$shown")
  if [[ -z $answer ]]; then
    echo "demo.sh: no answer for $picture in the output of qrt run" >&2
    exit 1
  fi
  answers[$picture]=$answer
  if [[ $answer == "$digit" ]]; then
    verdict="right: $answer"
    right=$((right + 1))
  else
    verdict="WRONG: $answer, it shows $digit"
    wrong+=("$picture")
  fi
  printf '%s  --  %s\n%s\n\n' "$picture" "$verdict" "$shown"
}

while IFS=$'\t' read -r picture digit; do
  [[ -n $picture && $picture != \#* ]] || continue
  read_picture "$picture" "$digit"
done <"$digits/samples/labels.txt"
# A photograph: the window around its digit is cut out and resized to what the model reads.
read_picture photo.jpg 5 --crop 560x560+540+220 --resize model

if ((right + ${#wrong[@]} == 0)); then
  echo "demo.sh: there are no samples in $digits/samples/labels.txt" >&2
  exit 1
fi
echo "$((right + ${#wrong[@]})) pictures of digits: $right right, ${#wrong[@]} wrong"
if ((${#wrong[@]} > 0)); then
  printf 'wrong: %s\n' "${wrong[*]}"
fi

# What the machine is good at is measured, and the choice of kernels becomes part of a model file.
folder=$(mktemp -d)
readonly folder
trap 'rm -rf "$folder"' EXIT
readonly tuned=$folder/tuned.qrtmodel

printf '\n==== qrt tune: which kernels read them the fastest on this machine?\n\n'
"$qrt" tune "$model" "$tuned" --no-wisdom
same=0
others=()
while IFS=$'\t' read -r picture digit; do
  [[ -n ${answers[$picture]:-} ]] || continue
  answer=$(best_of "$("$qrt" run "$tuned" --input "$digits/samples/$picture" --top 1 --labels "$digits/labels.txt")")
  if [[ $answer == "${answers[$picture]}" ]]; then
    same=$((same + 1))
  else
    others+=("$picture: $answer")
  fi
done <"$digits/samples/labels.txt"
printf '\n%s pictures read again with the tuned model: %s answers are the same, %s others\n\n' \
  "$((same + ${#others[@]}))" "$same" "${#others[@]}"
if ((${#others[@]} > 0)); then
  printf 'other: %s\n' "${others[@]}"
fi
cp "$model" "$folder/digits.qrtmodel"
(cd "$folder" && "$qrt" bench digits.qrtmodel --against tuned.qrtmodel --seconds 0.5)

# A page of text: the picture, and beside it what is read where it stands.
readonly page=$lines/samples/page.jpg expected=$lines/samples/page.txt
printf '\n==== qrt read page.jpg: a page as a telephone sees it, in a face that the network was not trained on\n\n'
started=$(date +%s%N)
text=$("$qrt" read "$page")
milliseconds=$((($(date +%s%N) - started) / 1000000))
"$qrt" read "$page" --preview
right_lines=$(diff --unchanged-line-format=x --old-line-format= --new-line-format= "$expected" <(printf '%s\n' "$text") || true)
printf '\n%s of %s lines are right to the letter; the page took %s ms, loading of the network included\n' \
  "${#right_lines}" "$(wc -l <"$expected")" "$milliseconds"
