#!/usr/bin/env bash
# Error cases of the `vrok` command. Each must exit with its status, print exactly the
# expected number of lines on stderr, each in the form "vrok: ...", one of them naming the
# file or argument, and leave no output file behind (nor touch one that was there).
# Usage: cli_errors.sh VROK TESTS_DIR
set -u
vrok=$1
tests=$2
bad=$tests/data/bad
examples=$tests/../examples
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAIL: $*" >&2
    echo "  stderr was:" >&2
    sed 's/^/    /' "$work/err" >&2
    failures=$((failures + 1))
}

# expect STATUS LINES NEEDLE ARGS...
expect() {
    local status=$1 lines=$2 needle=$3
    shift 3
    "$vrok" "$@" >"$work/out" 2>"$work/err"
    local got=$?
    local case="vrok $*"
    [ "$got" -eq "$status" ] || fail "$case: exit $got, expected $status"
    local count
    count=$(wc -l <"$work/err")
    [ "$count" -eq "$lines" ] || fail "$case: $count lines on stderr, expected $lines"
    grep -v -q '^vrok: ' "$work/err" && fail "$case: a line does not start with 'vrok: '"
    grep -q -F -- "$needle" "$work/err" || fail "$case: stderr does not mention '$needle'"
    if ls "$work"/out.wav* "$work"/out.vrkx* >/dev/null 2>&1; then
        fail "$case: left an output file"
        rm -f "$work"/out.wav* "$work"/out.vrkx*
    fi
}

out=$work/out.wav
sine=$examples/sine_a4.vrkx

# Patch files that cannot be read.
expect 1 1 "$work/nope.vrkx: cannot read file" render "$work/nope.vrkx" -o "$out"
expect 1 1 "$work: is a directory" render "$work" -o "$out"
expect 1 1 "unclosed_element.vrkx: line" render "$bad/unclosed_element.vrkx" -o "$out"
expect 1 1 'no_storables.vrkx: no "storables" element' render "$bad/no_storables.vrkx" -o "$out"
expect 1 1 "empty.vrkx" render "$bad/empty.vrkx" -o "$out"
expect 1 1 "wrong_magic.vrk: not a vrk file" render "$bad/wrong_magic.vrk" -o "$out"
expect 1 1 "truncated.vrk: file ends" render "$bad/truncated.vrk" -o "$out"
expect 1 1 "negative_count.vrk" render "$bad/negative_count.vrk" -o "$out"
expect 1 1 "unknown_type.vrk: unknown block type 36" render "$bad/unknown_type.vrk" -o "$out"
expect 1 1 "wrong_magic.vrk" info "$bad/wrong_magic.vrk"
expect 1 1 "unclosed_element.vrkx" convert "$bad/unclosed_element.vrkx" "$work/out.vrkx"

# Other files.
expect 1 1 "$work/song.mid: cannot read file" render "$sine" --midi "$work/song.mid" -o "$out"
expect 1 1 "not a standard MIDI file" render "$sine" --midi "$sine" -o "$out"
expect 1 1 "cannot read sound file" render "$sine" --input "$sine" -o "$out"
expect 1 1 "does not exist" render "$sine" --seconds 0.1 -o "$work/nodir/out.wav"

# Arguments.
expect 2 1 "--bogus" render "$sine" -o "$out" --bogus
expect 2 1 "subcommand" 
expect 2 1 "--play 'H4@0': unknown note 'H4'" render "$sine" --play H4@0 -o "$out"
expect 2 1 "velocity must be 1..127" render "$sine" --play A4:0@0 -o "$out"
expect 2 1 "ends before it starts" render "$sine" --play A4@2-1 -o "$out"
expect 2 1 "--knob '9=3'" render "$sine" --knob 9=3 -o "$out"
expect 2 1 "--format" render "$sine" --format mp3 -o "$out"
expect 2 1 "--rate" render "$sine" --rate 10 -o "$out"
expect 2 1 "--track" render "$sine" --track C-1@0 -o "$out"
expect 2 1 "--seconds" render "$sine" --seconds -1 -o "$out"
expect 2 1 "-o" render "$sine"

# A failed render leaves an existing output file as it was.
echo keep >"$work/keep.wav"
"$vrok" render "$bad/truncated.vrk" -o "$work/keep.wav" 2>/dev/null
[ "$(cat "$work/keep.wav")" = keep ] || fail "a failed render replaced an existing file"

# A patch with gaps renders what it can and warns once per problem.
"$vrok" render "$tests/app/data/unknown_block.vrkx" --seconds 0.1 -o "$work/gaps.wav" >"$work/out" 2>"$work/err"
[ $? -eq 0 ] || fail "patch with gaps: render failed"
[ "$(grep -c '^vrok: warning: .*unknown_block.vrkx' "$work/err")" -eq 3 ] || fail "patch with gaps: expected 3 warnings"
[ -s "$work/gaps.wav" ] || fail "patch with gaps: no output"

if [ "$failures" -ne 0 ]; then
    echo "$failures failure(s)" >&2
    exit 1
fi
echo "all command-line error cases pass"
