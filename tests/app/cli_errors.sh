#!/usr/bin/env bash
# Error cases of the `vrok` command. Each must exit with its status, print exactly one line
# on stderr, in the form "vrok: ...", naming the file or argument, and leave no output file
# behind (nor touch one that was there).
# Usage: cli_errors.sh VROK TESTS_DIR
set -u
vrok=$1
tests=$2
bad=$tests/data/bad
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=$work/out.wav
sine=$tests/../examples/sine_a4.vrkx
failures=0

fail() {
    echo "FAIL: $*" >&2
    sed 's/^/    stderr: /' "$work/err" >&2
    failures=$((failures + 1))
}

# expect STATUS NEEDLE ARGS...
expect() {
    local status=$1 needle=$2
    shift 2
    "$vrok" "$@" >"$work/out" 2>"$work/err"
    local got=$? case="vrok $*"
    [ "$got" -eq "$status" ] || fail "$case: exit $got, expected $status"
    [ "$(wc -l <"$work/err")" -eq 1 ] || fail "$case: expected one line on stderr"
    grep -v -q '^vrok: ' "$work/err" && fail "$case: a line does not start with 'vrok: '"
    grep -q -F -- "$needle" "$work/err" || fail "$case: stderr does not mention '$needle'"
    if ls "$work"/out.wav* "$work"/out.vrkx* >/dev/null 2>&1; then
        fail "$case: left an output file"
        rm -f "$work"/out.wav* "$work"/out.vrkx*
    fi
}
# render_fails STATUS NEEDLE PATCH ARGS...: `vrok render PATCH ARGS... -o $out`.
render_fails() { expect "$1" "$2" render "${@:3}" -o "$out"; }

# Patch files that cannot be read.
render_fails 1 "$work/nope.vrkx: cannot read file" "$work/nope.vrkx"
render_fails 1 "$work: is a directory" "$work"
render_fails 1 "unclosed_element.vrkx: line" "$bad/unclosed_element.vrkx"
render_fails 1 'no_storables.vrkx: no "storables" element' "$bad/no_storables.vrkx"
render_fails 1 "empty.vrkx" "$bad/empty.vrkx"
render_fails 1 "wrong_magic.vrk: not a vrk file" "$bad/wrong_magic.vrk"
render_fails 1 "truncated.vrk: file ends" "$bad/truncated.vrk"
render_fails 1 "negative_count.vrk" "$bad/negative_count.vrk"
render_fails 1 "unknown_type.vrk: unknown block type 36" "$bad/unknown_type.vrk"
expect 1 "wrong_magic.vrk" info "$bad/wrong_magic.vrk"
# The editor reads its patch before it opens a window, so these need no display.
expect 1 "$work/nope.vrkx: cannot open file" edit "$work/nope.vrkx"
expect 1 "unclosed_element.vrkx: line" edit "$bad/unclosed_element.vrkx"
expect 1 "wrong_magic.vrk" edit "$bad/wrong_magic.vrk"
expect 1 "unclosed_element.vrkx" convert "$bad/unclosed_element.vrkx" "$work/out.vrkx"

# Other files.
render_fails 1 "$work/song.mid: cannot read file" "$sine" --midi "$work/song.mid"
render_fails 1 "not a standard MIDI file" "$sine" --midi "$sine"
render_fails 1 "cannot read sound file" "$sine" --input "$sine"
expect 1 "does not exist" render "$sine" --seconds 0.1 -o "$work/nodir/out.wav"

# Arguments.
render_fails 2 "--bogus" "$sine" --bogus
expect 2 "subcommand"
render_fails 2 "--play 'H4@0': unknown note 'H4'" "$sine" --play H4@0
render_fails 2 "velocity must be 1..127" "$sine" --play A4:0@0
render_fails 2 "ends before it starts" "$sine" --play A4@2-1
render_fails 2 "--knob '9=3'" "$sine" --knob 9=3
render_fails 2 "--format" "$sine" --format mp3
render_fails 2 "--rate" "$sine" --rate 10
render_fails 2 "--track" "$sine" --track C-1@0
render_fails 2 "--seconds" "$sine" --seconds -1
render_fails 2 "--seconds '1e2'" "$sine" --seconds 1e2
render_fails 2 "--seconds '3601'" "$sine" --seconds 3601
render_fails 2 "start time '1e'" "$sine" --play A4@1e-3
render_fails 2 "start time '0x10'" "$sine" --play A4@0x10
render_fails 2 "events run to 100000 s, past the 3600 s" "$sine" --play A4@100000
render_fails 2 "events run to 1000000000000000000000 s" "$sine" --track A4@0-1000000000000000000000
"$vrok" render "$sine" --play A4@0-100000 --seconds 0.1 -o "$work/cut.wav" >/dev/null 2>&1 ||
    fail "--seconds lets a late event through and cuts the render there"
rm -f "$work/cut.wav"
expect 2 "-o" render "$sine"

# Devices and pipes are written in place, links keep pointing at their targets.
if [ "$(id -u)" -eq 0 ]; then
    "$vrok" render "$sine" --seconds 0.1 -o /dev/null >/dev/null 2>&1 || fail "render to /dev/null"
    [ -c /dev/null ] || fail "/dev/null is no longer a device"
fi
"$vrok" render "$sine" --seconds 0.1 -o >(cat >"$work/piped.wav") >/dev/null 2>&1 || fail "render into a pipe"
sleep 0.2
[ "$(head -c 4 "$work/piped.wav")" = RIFF ] || fail "the pipe did not get a WAV file"
mkdir "$work/real"
ln -s real/linked.wav "$work/link.wav"
"$vrok" render "$sine" --seconds 0.1 -o "$work/link.wav" >/dev/null 2>&1 || fail "render through a link"
[ -L "$work/link.wav" ] && [ -s "$work/real/linked.wav" ] || fail "the link was replaced"
rm -rf "$work/real" "$work/link.wav" "$work/piped.wav"

# SIGTERM during a long render leaves no temporary file.
"$vrok" render "$sine" --seconds 3600 -o "$work/long.wav" >/dev/null 2>&1 &
pid=$!
for _ in $(seq 50); do ls "$work"/long.wav.part* >/dev/null 2>&1 && break; sleep 0.1; done
kill -TERM $pid
wait $pid 2>/dev/null
ls "$work"/long.wav* >/dev/null 2>&1 && fail "an interrupted render left a file"
rm -f "$work"/long.wav*

# Names that are not UTF-8 are shown, not fatal.
cp "$sine" "$work/$(printf 'caf\xe9.vrkx')"
"$vrok" info --json "$work/$(printf 'caf\xe9.vrkx')" >"$work/out" 2>"$work/err" || fail "info --json on a Latin-1 name"
grep -q "caf$(printf '\xef\xbf\xbd').vrkx" "$work/out" || fail "info --json: the bad byte is not shown as U+FFFD"
rm -f "$work"/caf*

# A failed render leaves an existing output file as it was.
echo keep >"$work/keep.wav"
"$vrok" render "$bad/truncated.vrk" -o "$work/keep.wav" 2>/dev/null
[ "$(cat "$work/keep.wav")" = keep ] || fail "a failed render replaced an existing file"

# Live playing: arguments are checked before any device is opened.
expect 2 "patch" play
expect 2 "--audio" play "$sine" --audio pulse
expect 2 "--midi-channel" play "$sine" --midi-channel 17
expect 2 "--buffer" play "$sine" --buffer 4
expect 2 "--rate" play "$sine" --rate 100

# A patch with gaps renders what it can and warns once per problem.
"$vrok" render "$tests/app/data/unknown_block.vrkx" --seconds 0.1 -o "$work/gaps.wav" >"$work/out" 2>"$work/err" ||
    fail "patch with gaps: render failed"
[ "$(grep -c '^vrok: warning: .*unknown_block.vrkx' "$work/err")" -eq 3 ] || fail "patch with gaps: expected 3 warnings"
[ -s "$work/gaps.wav" ] || fail "patch with gaps: no output"

# The manual: an unknown topic, and manual files that cannot serve, each named.
manual=$tests/help/data/test_manual.xml
expect 2 'no article "oscilator"; did you mean: oscillator' manual --file "$manual" oscilator
expect 2 'no article "zzzz"' manual --file "$manual" zzzz
printf '<manual><block name="a"><title>x</manual>' >"$work/broken.xml"
expect 1 "broken.xml: line 1" manual --file "$work/broken.xml"
printf '<manual></manual>' >"$work/none.xml"
expect 1 "none.xml: the manual has no articles" manual --file "$work/none.xml"
expect 2 "--file" manual --file "$work/missing.xml"
expect 1 "broken.xml: line 1" edit --manual-file "$work/broken.xml"

[ "$failures" -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
echo "all command-line error cases pass"
