#!/usr/bin/env python3
"""The LV2 bundle under Debian's own tools: lv2ls and lv2info list it in the build tree,
lv2_validate checks its Turtle against the schemas, `cmake --install` puts it into a
prefix, lv2apply runs a WAV through the installed effect, and jalv loads the instrument
headless on a private JACK server with the dummy driver.

Exit 77 (skipped) when a tool is missing. Every path stops what it started.
"""
import argparse
import math
import os
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import wave

SKIP = 77
RATE = 44100
INSTRUMENT = "urn:vrok:lv2:instrument"
EFFECT = "urn:vrok:lv2:effect"

# input (volume 1.0) into output (volume 0.5): the mix of both channels at a quarter, on
# both sides.
QUARTER_PATCH = """<?xml version="1.0" standalone="no" ?>
<storables>
    <GLOBAL ID="0" Param_Polyphony="0.500000" />
    <BLOCK ID="1" TYPE="49" X="40" Y="60" POS="0" P0="1.000000" />
    <BLOCK ID="2" TYPE="0" X="200" Y="60" POS="1" P0="0.500000" />
    <CONNECTION ID="3" FROM="0" TO="1" INPUTID="0" />
</storables>
"""

passed, failures = [], []


def check(condition, text):
    print(("ok   " if condition else "FAIL ") + text)
    (passed if condition else failures).append(text)


def run(env, *command, timeout=60):
    return subprocess.run(command, env=env, capture_output=True, text=True, timeout=timeout, stdin=subprocess.DEVNULL)


def write_wav(path, left, right):
    with wave.open(path, "wb") as w:
        w.setnchannels(2)
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(b"".join(struct.pack("<hh", round(l * 32767), round(r * 32767)) for l, r in zip(left, right)))


def read_wav(path):
    with wave.open(path, "rb") as w:
        channels, width, frames = w.getnchannels(), w.getsampwidth(), w.getnframes()
        data = w.readframes(frames)
    if width == 2:
        values = [v / 32768 for v in struct.unpack("<%dh" % (len(data) // 2), data)]
    elif width == 4:
        values = [v / 2147483648 for v in struct.unpack("<%di" % (len(data) // 4), data)]
    else:
        raise ValueError("%s: unexpected sample width %d" % (path, width))
    return [values[c::channels] for c in range(channels)]


def test_listing(env):
    listed = run(env, "lv2ls").stdout.split()
    check(INSTRUMENT in listed and EFFECT in listed, "lv2ls lists both plug-ins")
    info = run(env, "lv2info", EFFECT).stdout
    check("Port 14:" in info and "Port 15:" not in info, "lv2info shows the effect's 15 ports")
    check("reported by port 12" in info, "lv2info shows the latency port")
    check('Symbol:      knob8' in info and "Maximum:     128.000000" in info, "lv2info shows the knobs' range")
    if shutil.which("sord_validate"):
        bundle = [p for p in env["LV2_PATH"].split(":") if os.path.isdir(os.path.join(p, "vrok.lv2"))][0]
        folder = os.path.join(bundle, "vrok.lv2")
        ttl = sorted(os.path.join(folder, f) for f in os.listdir(folder) if f.endswith(".ttl"))
        validated = run(env, "lv2_validate", *ttl)
        check("Found 0 errors" in validated.stdout + validated.stderr,
              "lv2_validate finds no error in %d files" % len(ttl))


def test_lv2apply(env, work):
    left = [0.5 * math.sin(2 * math.pi * 1000 * i / RATE) for i in range(RATE // 2)]
    right = [0.25 * math.sin(2 * math.pi * 300 * i / RATE) for i in range(RATE // 2)]
    source, result = os.path.join(work, "in.wav"), os.path.join(work, "out.wav")
    write_wav(source, left, right)
    applied = run(env, "lv2apply", "-i", source, "-o", result, EFFECT)
    check(applied.returncode == 0, "lv2apply runs the effect (%s)" % applied.stderr.strip())
    if applied.returncode != 0:
        return
    out_left, out_right = read_wav(result)
    check(len(out_left) == len(left), "lv2apply keeps the length")
    worst = max(abs(out_left[i] - 0.25 * 0.5 * (left[i] + right[i])) for i in range(len(left)))
    check(worst < 3 / 32768, "the patch's mix at a quarter comes out (worst error %.2e)" % worst)
    check(out_left == out_right, "both channels carry the mix")


def wait_for(predicate, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.1)
    return False


def stop(process):
    if process and process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def test_jalv(env, work):
    server = "vrok-lv2-test-%d" % os.getpid()
    env = dict(env, JACK_DEFAULT_SERVER=server, JACK_NO_AUDIO_RESERVATION="1")
    jackd = jalv = None
    log = open(os.path.join(work, "jack.log"), "w")
    try:
        jackd = subprocess.Popen(["jackd", "--no-realtime", "-n", server, "-d", "dummy", "-r", str(RATE), "-p", "256"],
                                 env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)
        up = run(env, "jack_wait", "-s", server, "-w", "-t", "10", timeout=15)
        check(up.returncode == 0, "a private JACK server with the dummy driver starts")
        if up.returncode != 0:
            return
        # jalv reads commands from stdin: a pipe that stays open keeps it running.
        jalv = subprocess.Popen(["jalv", "-n", "vrok", "-x", INSTRUMENT], env=env, stdin=subprocess.PIPE,
                                stdout=log, stderr=subprocess.STDOUT)

        def ports():
            return run(env, "jack_lsp", "-s", server, timeout=10).stdout.split()

        check(wait_for(lambda: "vrok:out_l" in ports() and "vrok:out_r" in ports(), 15),
              "jalv loads the instrument headless with its ports")
        check(jalv.poll() is None, "jalv keeps running")
    finally:
        stop(jalv)
        stop(jackd)
        log.close()


def install(env, cmake, build_dir, work):
    prefix = os.path.join(work, "prefix")
    installed = run(env, cmake, "--install", build_dir, "--prefix", prefix, timeout=120)
    check(installed.returncode == 0, "cmake --install into a prefix (%s)" % installed.stderr.strip())
    bundle_dir = os.path.join(prefix, "lib", "lv2")
    listed = run(dict(env, LV2_PATH=bundle_dir), "lv2ls").stdout.split()
    check(INSTRUMENT in listed and EFFECT in listed, "the installed bundle lists both plug-ins")
    return dict(env, LV2_PATH=bundle_dir + ":/usr/lib/lv2")


def test_jalv_embeds_the_editor(env, work):
    """jalv.gtk3 embeds the X11 UI in its GTK window; the editor's window hangs below it."""
    server = "vrok-lv2-ui-test-%d" % os.getpid()
    env = dict(env, JACK_DEFAULT_SERVER=server, JACK_NO_AUDIO_RESERVATION="1")
    jackd = jalv = None
    log = open(os.path.join(work, "jack-ui.log"), "w")
    try:
        jackd = subprocess.Popen(["jackd", "--no-realtime", "-n", server, "-d", "dummy", "-r", str(RATE), "-p", "256"],
                                 env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)
        if run(env, "jack_wait", "-s", server, "-w", "-t", "10", timeout=15).returncode != 0:
            check(False, "a private JACK server starts for the UI run")
            return
        jalv = subprocess.Popen(["jalv.gtk3", "-n", "vrokui", INSTRUMENT], env=env, stdin=subprocess.PIPE,
                                stdout=log, stderr=subprocess.STDOUT)

        def tree():
            return run(env, "xwininfo", "-root", "-tree", timeout=10).stdout

        def embedded():
            # The host's window, then (indented deeper) the editor's.
            lines = tree().splitlines()
            host = [i for i, line in enumerate(lines) if '"jalv.gtk3"' in line and "Jalv" in line]
            editor = [i for i, line in enumerate(lines) if "[VROK] fx editor - [VROK] synth" in line]
            if not host or not editor:
                return False
            depth = lambda line: len(line) - len(line.lstrip())
            return any(h < e and depth(lines[h]) < depth(lines[e]) for h in host for e in editor)

        check(wait_for(embedded, 20), "jalv.gtk3 embeds the editor inside its own window")
        check(jalv.poll() is None, "jalv.gtk3 keeps running with the editor shown")
    finally:
        stop(jalv)
        stop(jackd)
        log.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bundle-dir", required=True, help="the folder holding vrok.lv2 in the build tree")
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--cmake", required=True)
    parser.add_argument("--ui", action="store_true", help="only the editor in jalv.gtk3 (needs an X server)")
    args = parser.parse_args()
    tools = ["jalv.gtk3", "jackd", "jack_wait", "xwininfo"] if args.ui else [
        "lv2ls", "lv2info", "lv2apply", "jalv", "jackd", "jack_wait", "jack_lsp"]
    missing = [t for t in tools if not shutil.which(t)]
    if missing:
        print("skipped: missing " + " ".join(missing))
        return SKIP
    work = tempfile.mkdtemp(prefix="vrok-lv2-")
    try:
        patches = os.path.join(work, "data", "vrok", "patches")
        os.makedirs(patches)
        with open(os.path.join(patches, "0 quarter.vrkx"), "w") as f:
            f.write(QUARTER_PATCH)
        env = dict(os.environ, LV2_PATH=args.bundle_dir + ":/usr/lib/lv2", XDG_DATA_HOME=os.path.join(work, "data"),
                   VROK_CACHE_DIR=os.path.join(work, "cache"), HOME=work)
        if args.ui:
            test_jalv_embeds_the_editor(env, work)
        else:
            test_listing(env)
            installed = install(env, args.cmake, args.build_dir, work)
            test_lv2apply(installed, work)
            test_jalv(installed, work)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    print("%d passed, %d failed" % (len(passed), len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
