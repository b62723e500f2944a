#!/bin/sh
# The peer kit's ENGINE_RENDER adapter: ITEM OUT.wav SECONDS NOTES.csv -> `vrok render` of
# ITEM.vrkx beside this script. VROK=path/to/vrok (default: build/app/vrok under the current
# directory, the project root). The kit times the whole process tree, so this stays one dash
# process, one awk and an exec: the notes CSV (time_s,voice,event,note) becomes --play
# NOTE@ON-OFF words, which hold no blanks or glob characters and so split safely.
set -eu
item=$1 out=$2 secs=$3 notes=$4
case $0 in */*) here=${0%/*} ;; *) here=. ;; esac
patch=$here/$item.vrkx
[ -f "$patch" ] || { echo "render.sh: no patch for $item in $here" >&2; exit 2; }
set -- $(awk -F, 'NR > 1 {
    v = $2
    if (v in on) { printf " --play %s@%s-%s", note[v], on[v], $1; delete on[v] }
    if ($3 == "on") { on[v] = $1; note[v] = $4 }
  }
  END { for (v in on) printf " --play %s@%s", note[v], on[v] }' "$notes")
exec "${VROK:-$PWD/build/app/vrok}" render "$patch" -o "$out" --seconds "$secs" --format pcm16 "$@" >/dev/null
