#!/usr/bin/env python3
"""Writes the seed corpus of every fuzz target into corpus/<target>/: a handful of small,
valid inputs per door, made here (patches from examples/, MIDI and sound files built byte
by byte), so that the fuzzers start from the shapes real inputs have. Run it again only to
change the seeds; the files it writes are kept in the repository."""
import base64
import math
import pathlib
import struct
import wave

HERE = pathlib.Path(__file__).resolve().parent
EXAMPLES = HERE.parent.parent / "examples"
CORPUS = HERE / "corpus"

SMALL_PATCHES = ["sine_a4", "knob_level", "subtractive", "lfo_filter", "arpeggio_delay"]


def write(target, name, data):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    (folder / name).write_bytes(data)


def floats(values):
    return b"".join(struct.pack("<f", v) for v in values)


def sine(count, period):
    return [math.sin(2 * math.pi * i / period) * 0.5 for i in range(count)]


SAMPLE_PATCH = """<storables>
<BLOCK ID="1" TYPE="58" X="40" Y="60" POS="0" SAMPLE="s1" P0="0.5" />
<BLOCK ID="2" TYPE="0" X="200" Y="60" POS="1" P0="1" />
<CONNECTION ID="3" FROM="0" TO="1" INPUTID="0" />
<SAMPLE ID="4" samplename="tone" samplerate="22050" rootfrequency="440" samplekey="s1" sampledata="{}" />
</storables>
""".format(base64.b64encode(floats(sine(64, 16))).decode())


def patches():
    for name in SMALL_PATCHES:
        text = (EXAMPLES / f"{name}.vrkx").read_text()
        write("patch_xml", f"{name}.vrkx", text)
        write("clipboard", f"{name}.txt", text)
    write("patch_xml", "sampler.vrkx", SAMPLE_PATCH)
    write("clipboard", "block.txt", '[Block]<Block TYPE="1" X="10" Y="20" P0="0.2" P1="0.9" P2="0.5" />')
    write("clipboard", "patch.txt", "[Patch]" + (EXAMPLES / "subtractive.vrkx").read_text().split("?>", 1)[1])
    write("clipboard", "sampler.txt", "[Patch]" + SAMPLE_PATCH)


def saved_states():
    for name in ["sine_a4", "subtractive"]:
        text = (EXAMPLES / f"{name}.vrkx").read_text().encode()
        write("saved_state", f"{name}.state", struct.pack("<I", len(text)) + text + struct.pack("<ii", 640, 480))
    text = SAMPLE_PATCH.encode()
    write("saved_state", "sampler.state", struct.pack("<I", len(text)) + text)  # no window size
    write("saved_state", "empty_text.state", struct.pack("<Iii", 0, 400, 300))


# Parameter counts of the block types used below: output 1, filter 3, envelope 5, osc 3.
VRK_BLOCKS = {0: 1, 1: 3, 2: 5, 4: 3}


def vrk(blocks, wires):
    out = b"vrok" + struct.pack("<i", len(blocks))
    for kind, x, y, values in blocks:
        assert len(values) == VRK_BLOCKS[kind]
        out += struct.pack("<iii", kind, x, y) + floats(values)
    out += struct.pack("<i", len(wires))
    for source, dest, port in wires:
        out += struct.pack("<iiii", source, dest, port, 0)
    return out


def vrks():
    write("vrk", "empty.vrk", vrk([], []))
    write("vrk", "osc_out.vrk", vrk([(4, 40, 60, [0.5, 0.5, 0.5]), (0, 200, 60, [1.0])], [(0, 1, 0)]))
    write("vrk", "subtractive.vrk", vrk(
        [(4, 40, 60, [0.5, 0.5, 0.5]), (1, 200, 60, [0.4, 0.3, 0.0]), (0, 360, 60, [0.8]),
         (2, 200, 220, [0.05, 0.4, 0.2, 0.5, 1.0])],
        [(0, 1, 0), (1, 2, 0), (3, 1, 1)]))


def base64_samples():
    data = floats(sine(32, 8))
    write("base64_sample", "sine.txt", base64.b64encode(data))
    write("base64_sample", "lines.txt", base64.encodebytes(floats(sine(48, 12))))
    write("base64_sample", "padded.txt", base64.b64encode(data[:10]))
    write("base64_sample", "nan.txt", base64.b64encode(floats([0.25, math.nan, math.inf, -0.5])))


def midi(tracks, division=96, fmt=None):
    fmt = (0 if len(tracks) == 1 else 1) if fmt is None else fmt
    out = b"MThd" + struct.pack(">IHHH", 6, fmt, len(tracks), division)
    for events in tracks:
        body = bytes(events) + bytes([0x00, 0xFF, 0x2F, 0x00])
        out += b"MTrk" + struct.pack(">I", len(body)) + body
    return out


def midis():
    write("midi_file", "notes.mid", midi([[0x00, 0x90, 69, 100, 0x60, 0x80, 69, 64, 0x00, 0x91, 60, 80,
                                           0x30, 0x91, 60, 0]]))
    write("midi_file", "controls.mid", midi([[0x00, 0xB2, 1, 127, 0x60, 0xD0, 90, 0x00, 0xE0, 0, 64,
                                              0x00, 0x90, 60, 100, 0x81, 0x00, 0x80, 60, 0]]))
    # Format 1 with a tempo track: 0.25 s per quarter note, then running status.
    write("midi_file", "tempo.mid", midi([[0x00, 0xFF, 0x51, 0x03, 0x03, 0xD0, 0x90],
                                          [0x00, 0x90, 64, 90, 0x30, 64, 0, 0x00, 67, 90, 0x30, 67, 0]]))
    # SMPTE timing: 25 frames of 40 ticks.
    write("midi_file", "smpte.mid", midi([[0x00, 0x90, 60, 100, 0x28, 0x80, 60, 0]], division=0xE728))


def wav(name, channels, width, rate, frames):
    folder = CORPUS / "sample_file"
    folder.mkdir(parents=True, exist_ok=True)
    with wave.open(str(folder / name), "wb") as out:
        out.setnchannels(channels)
        out.setsampwidth(width)
        out.setframerate(rate)
        scale = (1 << (8 * width - 1)) - 1
        data = b""
        for i in range(frames):
            for c in range(channels):
                v = int(math.sin(2 * math.pi * i / 16 + c) * 0.5 * scale)
                data += (v + 128).to_bytes(1, "little") if width == 1 else v.to_bytes(width, "little", signed=True)
        out.writeframes(data)


def float_wav(name, values, rate=44100):
    data = floats(values)
    fmt = struct.pack("<HHIIHH", 3, 1, rate, rate * 4, 4, 32)
    body = b"WAVE" + b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data
    write("sample_file", name, b"RIFF" + struct.pack("<I", len(body)) + body)


def sounds():
    wav("mono16.wav", 1, 2, 44100, 64)
    wav("stereo24.wav", 2, 3, 48000, 32)
    wav("mono8.wav", 1, 1, 8000, 32)
    float_wav("float.wav", sine(32, 8))
    float_wav("float_nan.wav", [0.5, math.nan, -math.inf, 0.25])


def host_ticks():
    # Rate index, ticks' length (two bytes), tracks; then per tick 8 knobs, a note and a
    # velocity per track, the frames (two bytes) and the work mode.
    def tick(knobs, notes, frames, mode):
        out = bytes(knobs)
        for note, velocity in notes:
            out += bytes([note, velocity])
        return out + struct.pack("<H", frames - 1) + bytes([mode])

    quiet = [0xFF] * 8
    write("host_tick", "one_note.bin", bytes([1]) + struct.pack("<H", 5250) + bytes([1]) +
          tick(quiet, [(0x41, 0xFF)], 256, 2) + tick(quiet, [(0, 0xFF)], 512, 2) +
          tick(quiet, [(0xFF, 0xFF)], 256, 2))
    write("host_tick", "knobs_chord.bin", bytes([2]) + struct.pack("<H", 6000) + bytes([3]) +
          tick([0, 64, 128, 0xFF, 10, 20, 30, 40], [(0x41, 80), (0x45, 100), (0x48, 127)], 300, 3) +
          tick([128, 0, 64, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF], [(0, 0xFF), (0xFF, 0xFF), (0x4A, 20)], 1024, 3))
    write("host_tick", "rate_change.bin", bytes([3]) + struct.pack("<H", 100) + bytes([16]) +
          tick(quiet, [(0x31 + t % 12, 60) for t in range(16)], 64, 1) +
          tick(quiet, [(0xFF, 0xFF)] * 16, 64, 0))


if __name__ == "__main__":
    patches()
    saved_states()
    vrks()
    base64_samples()
    midis()
    sounds()
    host_ticks()
