"""Reads the WAV files the tracker writes and measures level and pitch per channel.

Only the standard library: the tracker's encoder writes a data size that counts more bytes
than the file holds, so the reader trusts the file length over the header.
"""
import math
import struct


def read_wav(path):
    """Returns (rate, channels): channels is a list of sample lists in -1..1."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        raise ValueError(f"{path}: not a RIFF WAVE file")
    pos, fmt, samples = 12, None, None
    while pos + 8 <= len(data):
        tag, size = data[pos:pos + 4], struct.unpack_from("<I", data, pos + 4)[0]
        body = data[pos + 8:min(len(data), pos + 8 + size)]
        if tag == b"fmt ":
            fmt = struct.unpack_from("<HHIIHH", body)
        elif tag == b"data":
            samples = body
            break
        pos += 8 + size + (size & 1)
    if fmt is None or samples is None:
        raise ValueError(f"{path}: no fmt or data chunk")
    code, channels, rate, _, _, bits = fmt
    if code == 0xFFFE:  # extensible: the sub-format's first two bytes give the code
        code = struct.unpack_from("<H", data, data.index(b"fmt ") + 8 + 24)[0]
    width = bits // 8
    frames = len(samples) // (width * channels)
    if code == 3 and bits == 32:
        values = struct.unpack_from(f"<{frames * channels}f", samples)
    elif code == 1 and bits == 16:
        values = [v / 32768.0 for v in struct.unpack_from(f"<{frames * channels}h", samples)]
    elif code == 1 and bits == 32:
        values = [v / 2147483648.0 for v in struct.unpack_from(f"<{frames * channels}i", samples)]
    else:
        raise ValueError(f"{path}: unsupported sample format {code}/{bits} bits")
    return rate, [list(values[c::channels]) for c in range(channels)]


def rms(samples):
    return math.sqrt(sum(s * s for s in samples) / len(samples)) if samples else 0.0


def pitch(samples, rate):
    """Frequency of a steady tone from its upward zero crossings, interpolated; 0 if none."""
    mean = sum(samples) / len(samples) if samples else 0.0
    times = []
    for i in range(1, len(samples)):
        a, b = samples[i - 1] - mean, samples[i] - mean
        if a < 0.0 <= b:
            times.append(i - 1 + a / (a - b))
    if len(times) < 3:
        return 0.0
    return (len(times) - 1) * rate / (times[-1] - times[0])


def window(channel, rate, start, end):
    return channel[int(start * rate):int(end * rate)]
