#!/usr/bin/env python3
"""Vrok's machines in Buzztrax, headless, with a private registry, machine folder, patch
folder and settings. Exits 77 (skipped) when the tracker's tools are not installed.

  buzztrax_test.py --machines VrokFx.so VrokSynth.so SecondTone.so --examples DIR
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # keep the source tree clean
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import wav_measure  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
A4 = 293.66  # pattern a-4 is engine note 63
E5 = 440.0   # pattern e-5 is engine note 70
TOOLS = ("gst-inspect-1.0", "gst-launch-1.0", "buzztrax-cmd")
ARGS = None


class Buzztrax(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = tempfile.mkdtemp(prefix="vrok-buzztrax-")
        gear = os.path.join(cls.root, "gear")
        patches = os.path.join(cls.root, "data", "vrok", "patches")
        os.makedirs(gear)
        os.makedirs(patches)
        for machine in ARGS.machines:
            shutil.copy(machine, gear)
        shutil.copy(os.path.join(ARGS.examples, "input_pass.vrkx"), os.path.join(patches, "0 pass.vrkx"))
        shutil.copy(os.path.join(ARGS.examples, "sine_a4.vrkx"), os.path.join(patches, "3 sine.vrkx"))
        shutil.copy(os.path.join(ARGS.examples, "knob_level.vrkx"), os.path.join(patches, "5 knob.vrkx"))
        shutil.copy(os.path.join(ARGS.examples, "subtractive.vrkx"), os.path.join(patches, "6 subtractive.vrkx"))
        cls.env = dict(os.environ)
        cls.env.pop("VROK_CACHE_DIR", None)
        cls.env.update({
            "BML_PATH": gear,
            "GST_REGISTRY": os.path.join(cls.root, "registry.bin"),
            "GSETTINGS_BACKEND": "memory",
            "HOME": cls.root,
            "XDG_DATA_HOME": os.path.join(cls.root, "data"),
            "XDG_CACHE_HOME": os.path.join(cls.root, "cache"),
            "XDG_CONFIG_HOME": os.path.join(cls.root, "config"),
        })
        # The first listing scans the machine folder; nothing may have used a machine yet.
        cls.scan = subprocess.run(["gst-inspect-1.0", "bml"], env=cls.env, cwd=cls.root, capture_output=True,
                                  text=True, timeout=120)
        cls.cache_after_scan = os.path.exists(os.path.join(cls.root, "cache", "vrok"))

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.root, ignore_errors=True)

    def run_tool(self, *command):
        result = subprocess.run(command, env=self.env, cwd=self.root, capture_output=True, text=True,
                                timeout=120)
        self.assertEqual(result.returncode, 0, f"{command[0]} failed:\n{result.stdout}\n{result.stderr}")
        return result.stdout

    def measure(self, path, start, end):
        """(rms, pitch) per channel between `start` and `end` seconds."""
        rate, channels = wav_measure.read_wav(path)
        windows = [wav_measure.window(c, rate, start, end) for c in channels]
        return [(wav_measure.rms(w), wav_measure.pitch(w, rate)) for w in windows]

    def assert_tone(self, path, start, end, hz, channels=2):
        measured = self.measure(path, start, end)
        self.assertEqual(len(measured), channels)
        for level, pitch in measured:
            self.assertGreater(level, 0.01, f"{path}: silent at {start}-{end} s")
            self.assertAlmostEqual(pitch, hz, delta=0.5, msg=f"{path} at {start}-{end} s")

    def test_scan_lists_both_machines_beside_another(self):
        self.assertEqual(self.scan.returncode, 0, self.scan.stderr)
        for element in ("bml-VrokFx", "bml-VrokSynth", "bml-SecondTone"):
            self.assertIn(element, self.scan.stdout)
        self.assertFalse(self.cache_after_scan, "the scan wrote the wave table cache")
        common = [f"Knob-{k}" for k in range(1, 9)] + ["Midi-Channel", "Note", "Velocity"]
        for element, klass, extra in (("bml-VrokFx", "Filter/Effect/Audio/BML", []),
                                      ("bml-VrokSynth", "Source/Audio/BML", ["Patch"])):
            details = self.run_tool("gst-inspect-1.0", element)
            self.assertIn(klass, details)
            for name in common + extra:
                self.assertRegex(details, rf"\n  {name} +:", f"{element} lacks {name}")
            self.assertNotIn("channels: 1", details, f"{element} has a mono pad")

    def test_effect_passes_a_1khz_tone_in_both_channels(self):
        out = os.path.join(self.root, "fx.wav")
        self.run_tool("gst-launch-1.0", "-q", "audiotestsrc", "num-buffers=20", "samplesperbuffer=1000",
                      "freq=1000", "volume=0.2", "!", "audio/x-raw,format=F32LE,channels=2,rate=44100",
                      "!", "bml-VrokFx", "!", "wavenc", "!", "filesink", f"location={out}")
        self.assert_tone(out, 0.05, 0.4, 1000.0)
        for level, _ in self.measure(out, 0.05, 0.4):
            self.assertAlmostEqual(level, 0.2 / 2 ** 0.5, delta=0.005, msg="the pass is not at unity")

    def test_effect_in_a_song_passes_its_input(self):
        # The tracker's own synth plays b-5, which it tunes to 1975.5 Hz, into the effect.
        out = os.path.join(self.root, "effect_song.wav")
        self.run_tool("buzztrax-cmd", "-c", "encode", "-i", os.path.join(HERE, "effect_song.xml"), "-o", out)
        self.assert_tone(out, 0.1, 1.5, 1975.5)

    def test_generator_plays_a4_at_the_mapped_pitch(self):
        out = os.path.join(self.root, "gen.wav")
        self.run_tool("gst-launch-1.0", "-q", "bml-VrokSynth", "num-buffers=10", "Patch=3", "Note=a-4", "!",
                      "wavenc", "!", "filesink", f"location={out}")
        self.assert_tone(out, 0.05, 0.5, A4)

    def test_host_knob_drives_the_patch_through_its_external_knob(self):
        # Knob-1 sets the sine's level: 64 is the knob's centre and silent, 128 full.
        levels = {}
        for value in (64, 128):
            out = os.path.join(self.root, f"knob{value}.wav")
            self.run_tool("gst-launch-1.0", "-q", "bml-VrokSynth", "num-buffers=10", "Patch=5", "Note=a-4",
                          f"Knob-1={value}", "!", "wavenc", "!", "filesink", f"location={out}")
            levels[value] = self.measure(out, 0.05, 0.5)[0][0]
        self.assertLess(levels[64], 0.001)
        self.assert_tone(os.path.join(self.root, "knob128.wav"), 0.05, 0.5, A4)

    def test_a_released_note_ends_in_silence(self):
        # a-4 on the enveloped subtractive patch from tick 0, "off" at tick 4 (0.5 s): it
        # sounds, and once its release has run the voice is over and the output silent.
        out = os.path.join(self.root, "release.wav")
        self.run_tool("buzztrax-cmd", "-c", "encode", "-i", os.path.join(HERE, "release_song.xml"), "-o", out)
        for level, _ in self.measure(out, 0.1, 0.45):
            self.assertGreater(level, 0.01)
        for level, _ in self.measure(out, 1.5, 1.9):
            self.assertLess(level, 1e-4)

    def test_song_plays_its_notes_on_its_patch_and_keeps_the_choice(self):
        song = os.path.join(HERE, "synth_song.xml")
        out = os.path.join(self.root, "song.wav")
        self.run_tool("buzztrax-cmd", "-c", "encode", "-i", song, "-o", out)
        # a-4 from tick 0, e-5 from tick 8 (1 s at 120 BPM and 4 ticks per beat).
        self.assert_tone(out, 0.1, 0.95, A4)
        self.assert_tone(out, 1.03, 1.9, E5)

        saved = os.path.join(self.root, "saved.xml")
        self.run_tool("buzztrax-cmd", "-c", "convert", "-i", song, "-o", saved)
        with open(saved, encoding="utf-8") as f:
            self.assertRegex(f.read(), r'<prefsdata name="Patch" value="3"/>')
        again = os.path.join(self.root, "again.wav")
        self.run_tool("buzztrax-cmd", "-c", "encode", "-i", saved, "-o", again)
        self.assert_tone(again, 1.03, 1.9, E5)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--machines", nargs="+", required=True)
    parser.add_argument("--examples", required=True)
    ARGS, rest = parser.parse_known_args()
    missing = [tool for tool in TOOLS if not shutil.which(tool)]
    if missing:
        print(f"skipped: {', '.join(missing)} not installed (scripts/install-deps.sh adds them)")
        return 77
    program = unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
