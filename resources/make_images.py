#!/usr/bin/env python3
"""Draws the theme's four PNG images (drop shadow sheet, title marker, icon, top bar glyph).

Standard library only: shapes are sampled 4 x 4 per pixel for anti-aliasing and the PNG is
written with zlib and struct. Run from anywhere; the files land beside this script.
"""

import math
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
SUPERSAMPLE = 4


def write_png(path, width, height, pixels):
    """pixels: rows of (r, g, b, a) tuples; writes 8-bit RGBA, no interlace."""
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    raw = bytearray()
    for row in pixels:
        raw.append(0)  # filter: none
        for r, g, b, a in row:
            raw += bytes((r, g, b, a))
    header = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    data = (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
            + chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))
    with open(path, "wb") as f:
        f.write(data)


def smoothstep(t):
    t = min(1.0, max(0.0, t))
    return t * t * (3 - 2 * t)


def coverage(width, height, inside):
    """Fraction of each pixel's sub-samples for which inside(x, y) holds."""
    n = SUPERSAMPLE
    rows = []
    for py in range(height):
        row = []
        for px in range(width):
            hits = sum(1 for sy in range(n) for sx in range(n)
                       if inside(px + (sx + 0.5) / n, py + (sy + 0.5) / n))
            row.append(hits / (n * n))
        rows.append(row)
    return rows


def shadow_sheet():
    # The window sits at (8, 7)..(135, 135) inside the 149 x 149 sheet: margins left 8, top 7,
    # right and bottom 14. The shadow is a rectangle blurred over 11 pixels, reaching zero at
    # the sheet's border, so it shows mostly below and right of the window. Under the window it
    # is transparent. Each edge strip is constant along its length, so stretching it is exact.
    size, ramp, peak = 149, 11.0, 96
    left, top, right, bottom = 8, 7, 135, 135

    def profile(v):
        return smoothstep(v / ramp) * smoothstep((size - v) / ramp)

    rows = []
    for y in range(size):
        row = []
        for x in range(size):
            under_window = left <= x < right and top <= y < bottom
            alpha = 0 if under_window else round(peak * profile(x + 0.5) * profile(y + 0.5))
            row.append((32, 32, 32, alpha))
        rows.append(row)
    return size, size, rows


def paint(width, height, layers):
    """layers: (colour, coverage rows) from bottom to top, composited over transparency."""
    rows = [[(0.0, 0.0, 0.0, 0.0)] * width for _ in range(height)]
    for colour, cover in layers:
        for y in range(height):
            for x in range(width):
                a = cover[y][x] * colour[3] / 255
                r, g, b, base = rows[y][x]
                out = a + base * (1 - a)
                if out > 0:
                    mix = [(c / 255 * a + d * base * (1 - a)) / out
                           for c, d in zip(colour[:3], (r, g, b))]
                    rows[y][x] = (mix[0], mix[1], mix[2], out)
    return [[(round(r * 255), round(g * 255), round(b * 255), round(a * 255))
             for r, g, b, a in row] for row in rows]


def title_marker():
    # A right-pointing triangle, dark as the title text it leads.
    w, h = 11, 9

    def inside(x, y):
        return x >= 2 and abs(y - 4.5) <= (9.5 - x) * 4.0 / 7.5

    return w, h, paint(w, h, [((64, 64, 64, 255), coverage(w, h, inside))])


def rounded_square(x0, y0, x1, y1, radius):
    def inside(x, y):
        cx = min(max(x, x0 + radius), x1 - radius)
        cy = min(max(y, y0 + radius), y1 - radius)
        return (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2
    return inside


def disc(cx, cy, radius):
    return lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2


def icon():
    # A rounded square in the accent blue holding a pale knob whose pointer stands at 10 past.
    w = h = 32
    outer = rounded_square(1, 1, 31, 31, 7)
    inner = rounded_square(2.5, 2.5, 29.5, 29.5, 5.5)
    angle = math.radians(-40)
    tip = (16 + 8 * math.cos(angle), 17 + 8 * math.sin(angle))

    def pointer(x, y):
        # Within 1.3 pixels of the segment from the knob's centre to the tip.
        dx, dy = tip[0] - 16, tip[1] - 17
        t = max(0.0, min(1.0, ((x - 16) * dx + (y - 17) * dy) / (dx * dx + dy * dy)))
        return math.hypot(x - 16 - t * dx, y - 17 - t * dy) <= 1.3

    return w, h, paint(w, h, [
        ((40, 60, 110, 255), coverage(w, h, outer)),
        ((127, 168, 255, 255), coverage(w, h, inner)),
        ((40, 60, 110, 255), coverage(w, h, disc(16, 17, 10))),
        ((240, 244, 255, 255), coverage(w, h, disc(16, 17, 8.8))),
        ((40, 60, 110, 255), coverage(w, h, pointer)),
    ])


def top_bar_glyph():
    # A small knob: dark rim, accent face, a dot for the pointer.
    w = h = 9
    return w, h, paint(w, h, [
        ((40, 60, 110, 255), coverage(w, h, disc(4.5, 4.5, 4.3))),
        ((127, 168, 255, 255), coverage(w, h, disc(4.5, 4.5, 3.2))),
        ((40, 60, 110, 255), coverage(w, h, disc(6.0, 3.0, 1.0))),
    ])


def main():
    for name, draw in (("shadow.png", shadow_sheet), ("title_marker.png", title_marker),
                       ("icon.png", icon), ("top_bar_glyph.png", top_bar_glyph)):
        width, height, pixels = draw()
        write_png(os.path.join(HERE, name), width, height, pixels)


if __name__ == "__main__":
    main()
