#!/usr/bin/env python3
"""Makes the pictures of the data folder's Graphics folder:

    bg.jpg             1024 x 1024  the backdrop behind the furry object
    fur.jpg             512 x 512   the fur colour, tiling in both directions
    logo_vxa.png        160 x 43    maker logo, blended by its alpha
    logo_a.png          512 x 128   product initial, added to the scene
    logo_opengl.png     128 x 64    API logos, added to the scene
    logo_direct3d.png   128 x 64
    logo_gpu.png        150 x 100   backdrop of a GPU's sensor panel, blended by its alpha

The build runs it on the build host (also for the Windows cross build), so
it uses the standard library only, and it is quick: the two photographs are
sums of products of one-dimensional profiles (a(x) * b(y)), some of them
sheared row by row, evaluated a whole row at a time in packed integers, plus
per-pixel grain from a fixed hash stream. Output is byte-for-byte the same
on every run.

Pictures added to the scene (blend factors ONE or ONE_MINUS_SRC_COLOR on the
source) are stored premultiplied on black: their colour is the light they
add. Pictures blended by alpha are stored with straight colour.
"""

import argparse
import hashlib
import math
import os
import sys
from array import array

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import jpeg_encoder  # noqa: E402
import pixel_font  # noqa: E402
import png_writer  # noqa: E402
import raster  # noqa: E402

JPEG_QUALITY = 92


def noise(tag, count):
    """`count` bytes of a fixed pseudo-random stream named by `tag`."""
    return hashlib.shake_256(b"ardentium graphics/" + tag.encode()).digest(count)


# ------------------------------------------------------------ packed rows
#
# A row is one integer with a 32-bit field per pixel holding a colour level
# in 16.16 fixed point. Profiles a(x) are packed as 8-bit fractions (0..256)
# and multiplied by levels given in 8.8 (0..65280), so every product lands in
# 16.16; the pictures keep every sum below 256 by construction, so byte 2 of
# each field is the pixel's value.

def pack(fields):
    a = array("I", fields)
    if sys.byteorder == "big":
        a.byteswap()
    return int.from_bytes(a.tobytes(), "little")


def profile(values):
    """Packs a row of fractions in 0..1."""
    return pack([int(round(min(1.0, max(0.0, v)) * 256)) for v in values])


def level(value):
    """A colour level (0..255) as the 8.8 weight of a profile."""
    return int(round(value * 256))


def rotate(row, shift, width):
    """The row moved right by `shift` pixels, wrapping around."""
    shift %= width
    if shift == 0:
        return row
    total, bits = 32 * width, 32 * shift
    return ((row << bits) & ((1 << total) - 1)) | (row >> (total - bits))


def grain_row(data, width):
    """Grain bytes as a row of 32-bit fields (each 0..255)."""
    buf = bytearray(4 * width)
    buf[0::4] = data
    return int.from_bytes(buf, "little")


def row_bytes(row, width):
    return row.to_bytes(4 * width, "little")[2::4]


def smoothstep(t):
    t = min(1.0, max(0.0, t))
    return t * t * (3 - 2 * t)


def periodic_value_noise(tag, width, step, power=1.0):
    """A smooth random profile of period `width`: random knots every `step`
    pixels joined by cosine curves, raised to `power` for contrast."""
    knots = noise(tag, width // step)
    count = len(knots)
    out = []
    for x in range(width):
        k, f = divmod(x, step)
        a, b = knots[k] / 255.0, knots[(k + 1) % count] / 255.0
        t = (1 - math.cos(math.pi * f / step)) / 2
        out.append((a + (b - a) * t) ** power)
    return out


# ------------------------------------------------------------- backdrop

def make_background(width=1024, height=1024):
    """A deep blue-grey backdrop: lighter at the top, a cool glow behind the
    object's place, faint diagonal light shafts from the upper left, darker
    corners, and a little grain against banding."""
    top, bottom = (24, 30, 44), (6, 7, 12)
    glow = (30, 54, 80)
    shafts = (12, 16, 24)
    grain = 3.0

    def vignette(t, depth):
        u = 2.0 * t - 1.0
        return 1.0 - depth * u * u

    vx = [vignette((x + 0.5) / width, 0.5) for x in range(width)]
    gx = [math.exp(-(((x + 0.5) / width - 0.5) / 0.30) ** 2) for x in range(width)]
    base_profile = profile(vx)
    glow_profile = profile([g * v for g, v in zip(gx, vx)])
    # Broad soft shafts: a few sines of whole periods, kept positive.
    shaft_values = []
    for x in range(width):
        t = 2 * math.pi * x / width
        s = 0.55 * math.sin(3 * t + 0.4) + 0.3 * math.sin(7 * t + 2.1) + 0.15 * math.sin(13 * t + 5.0)
        shaft_values.append(max(0.0, s) ** 2)
    shaft_profile = profile(shaft_values)
    grain_bytes = noise("bg grain", width * height)
    grain_weight = int(round(grain * 65536 / 255))

    planes = (bytearray(), bytearray(), bytearray())
    for y in range(height):
        ty = (y + 0.5) / height
        vy = vignette(ty, 0.45)
        mix = smoothstep(ty)
        gy = math.exp(-((ty - 0.40) / 0.26) ** 2)
        fade = (1.0 - ty) ** 1.5
        shaft_row = rotate(shaft_profile, int(ty * 0.6 * height), width)
        noise_row = grain_row(grain_bytes[y * width:(y + 1) * width], width) * grain_weight
        for c in range(3):
            base = top[c] + (bottom[c] - top[c]) * mix
            row = (level(base * vy) * base_profile + level(glow[c] * gy * vy) * glow_profile +
                   level(shafts[c] * fade * vy) * shaft_row + noise_row)
            planes[c].extend(row_bytes(row, width))
    return width, height, [bytes(p) for p in planes]


# ------------------------------------------------------------------ fur

def make_fur(width=512, height=512):
    """Warm brown fur with golden strands: three families of strands (broad,
    fine, soft clumps) running diagonally with a slight wave, lighter and
    darker patches, and grain. Every part repeats across the edges, so the
    texture tiles."""
    assert width == height, "the strands' slope tiles only on a square"
    base = (50, 28, 11)
    strands = [
        # tag, knot step, contrast, colour, wave amplitude, wave count, wave phase
        ("fur broad", 4, 1.6, (80, 54, 25), 6.0, 2, 0.0),
        ("fur fine", 2, 1.2, (50, 34, 16), 4.0, 3, 1.0),
        ("fur clumps", 32, 1.0, (34, 24, 12), 10.0, 1, 2.5),
    ]
    patch = (16, 10, 4)
    grain = (14, 9, 4)

    families = []
    for tag, step, power, colour, amp, waves, phase in strands:
        families.append((profile(periodic_value_noise(tag, width, step, power)), colour, amp, waves, phase))
    patch_profile = profile([(1 + math.cos(2 * math.pi * 2 * x / width)) / 2 for x in range(width)])
    ones = profile([1.0] * width)
    grain_bytes = noise("fur grain", width * height)
    grain_weights = [int(round(g * 65536 / 255)) for g in grain]

    planes = (bytearray(), bytearray(), bytearray())
    for y in range(height):
        rows = []
        for prof, colour, amp, waves, phase in families:
            shift = y + int(round(amp * math.sin(2 * math.pi * waves * y / height + phase)))
            rows.append((rotate(prof, shift, width), colour))
        py = (1 + math.cos(2 * math.pi * 3 * y / height)) / 2
        grain_r = grain_row(grain_bytes[y * width:(y + 1) * width], width)
        for c in range(3):
            row = level(base[c]) * ones + level(patch[c] * py) * patch_profile + grain_weights[c] * grain_r
            for shifted, colour in rows:
                row += level(colour[c]) * shifted
            planes[c].extend(row_bytes(row, width))
    return width, height, [bytes(p) for p in planes]


# ---------------------------------------------------------------- letters
#
# Letters in a unit box (x and y from 0 to 1, y down), as contours for
# raster.polygon_mask.

def _signed_area(contour):
    return sum(x0 * y1 - x1 * y0 for (x0, y0), (x1, y1) in zip(contour, contour[1:] + contour[:1])) / 2


def _wound(contour, positive):
    return contour if (_signed_area(contour) > 0) == positive else contour[::-1]


# Leg slope and thickness of the A and the V (horizontal, in letter widths).
_SLOPE, _LEG = 0.37, 0.27


def letter_v():
    return [_wound([(0, 0), (_LEG, 0), (0.5, 0.64), (1 - _LEG, 0), (1, 0), (1 - _SLOPE, 1), (_SLOPE, 1)], True)]


def letter_x():
    t = 0.28
    return [_wound([(0, 0), (t, 0), (1, 1), (1 - t, 1)], True),
            _wound([(1 - t, 0), (1, 0), (t, 1), (0, 1)], True)]


def _a_inner_left(y):
    return _SLOPE * (1 - y) + _LEG


def _a_inner_right(y):
    return 1 - _SLOPE * (1 - y) - _LEG


def _a_apex():
    # Where the inner edges of the two legs meet.
    y = 1 - (1 - 2 * _LEG) / (2 * _SLOPE)
    return 0.5, y


def letter_a(bar_top=0.62, bar_bottom=0.80):
    outer = [(_SLOPE, 0), (1 - _SLOPE, 0), (1, 1), (1 - _LEG, 1),
             (_a_inner_right(bar_bottom), bar_bottom), (_a_inner_left(bar_bottom), bar_bottom),
             (_LEG, 1), (0, 1)]
    hole = [_a_apex(), (_a_inner_right(bar_top), bar_top), (_a_inner_left(bar_top), bar_top)]
    return [_wound(outer, True), _wound(hole, False)]


def letter_lambda():
    """The A without its bar: the product initial's stylised form."""
    return [_wound([(_SLOPE, 0), (1 - _SLOPE, 0), (1, 1), (1 - _LEG, 1), _a_apex(), (_LEG, 1), (0, 1)], True)]


def place(contours, x, y, w, h):
    return [[(x + px * w, y + py * h) for px, py in c] for c in contours]


# ------------------------------------------------------------------ logos

def make_maker_logo(width=160, height=43):
    """"VXA" in silver capitals with a soft shadow over an orange rule."""
    canvas = raster.Canvas(width, height)
    letter_w, letter_h, gap = 38, 31, 5
    x0 = (width - (3 * letter_w + 2 * gap)) / 2.0
    y0 = 3
    shapes = []
    for i, letter in enumerate((letter_v(), letter_x(), letter_a())):
        shapes += place(letter, x0 + i * (letter_w + gap), y0, letter_w, letter_h)
    ink = raster.polygon_mask(width, height, shapes)
    rule = raster.polygon_mask(width, height, [[(x0, 37), (width - x0, 37), (width - x0, 39.5), (x0, 39.5)]])
    shadow = raster.box_blur(raster.shift_mask([max(a, b) for a, b in zip(ink, rule)], width, height, 1, 1),
                             width, height, 1)
    canvas.paint(shadow, (0.0, 0.0, 0.0), 0.6)
    canvas.paint(rule, (0.90, 0.36, 0.10))

    def silver(x, y):
        t = min(1.0, max(0.0, (y - y0) / letter_h))
        return (1.0 - 0.30 * t, 1.0 - 0.25 * t, 1.0 - 0.18 * t)

    canvas.paint(ink, silver)
    return width, height, canvas.rgba_bytes()


def make_product_logo(width=512, height=128):
    """A stylised "A" (two legs, no bar) glowing orange to red, crossed by a
    thin light trail that fades out towards both sides."""
    canvas = raster.Canvas(width, height)
    letter_w, letter_h = 120, 104
    x0, y0 = (width - letter_w) / 2.0, (height - letter_h) / 2.0
    legs = raster.polygon_mask(width, height, place(letter_lambda(), x0, y0, letter_w, letter_h))
    trail_y = y0 + 0.66 * letter_h
    trail = raster.polygon_mask(width, height, [[(8, trail_y - 2.5), (width - 8, trail_y - 2.5),
                                                 (width - 8, trail_y + 2.5), (8, trail_y + 2.5)]])
    glow = raster.box_blur(legs, width, height, 4)
    canvas.add(glow, (0.35, 0.10, 0.02))

    def trail_color(x, y):
        fade = math.exp(-((x - width / 2.0) / 150.0) ** 2)
        return (0.85 * fade, 0.42 * fade, 0.10 * fade)

    def leg_color(x, y):
        t = min(1.0, max(0.0, (y - y0) / letter_h))
        return (0.95, 0.62 - 0.45 * t, 0.16 - 0.12 * t)

    canvas.add(trail, trail_color)
    canvas.add(legs, leg_color)
    return width, height, canvas.rgba_bytes(premultiplied=True)


def make_api_logo(name, width=128, height=64):
    """The API's name in the pixel font, as large as fits, over a thin rule.
    Its colours are mid tones: the scene adds colour * (1 - colour), which
    is largest at one half."""
    canvas = raster.Canvas(width, height)
    scale = max(1, min((width - 12) // pixel_font.text_width(name), 4))
    tw = pixel_font.text_width(name, scale)
    th = pixel_font.GLYPH_H * scale
    x0 = (width - tw) // 2
    y0 = (height - th) // 2 - 3
    ink = raster.rect_mask(width, height, pixel_font.text_cells(name, x0, y0, scale))
    rule = raster.rect_mask(width, height, [(x0, y0 + th + 4, tw, 2)])

    def ink_color(x, y):
        t = (y - y0) / float(th)
        return (0.42 + 0.10 * t, 0.55 + 0.05 * t, 0.68 - 0.06 * t)

    canvas.paint(ink, ink_color)
    canvas.paint(rule, (0.62, 0.40, 0.22))
    return width, height, canvas.rgba_bytes(premultiplied=True)


def make_gpu_logo(width=150, height=100):
    """The backdrop of one GPU's sensor panel: a dark, half-transparent
    rounded plate with a blue edge and a small chip marked "GPU" in its
    upper right corner."""
    canvas = raster.Canvas(width, height)
    plate = raster.rounded_rect_mask(width, height, 1, 1, width - 1, height - 1, 8)
    edge = raster.rounded_rect_mask(width, height, 1, 1, width - 1, height - 1, 8, thickness=1.2)
    canvas.paint(plate, (0.03, 0.055, 0.09), 0.55)
    canvas.paint(edge, (0.32, 0.52, 0.76), 0.8)
    cx0, cy0, size = width - 40, 10, 28
    chip = raster.rounded_rect_mask(width, height, cx0, cy0, cx0 + size, cy0 + size, 3, thickness=1.5)
    pins = []
    for k in range(4):
        p = cx0 + 5 + k * 6
        pins += [(p, cy0 - 4, 2, 4), (p, cy0 + size, 2, 4)]
        q = cy0 + 5 + k * 6
        pins += [(cx0 - 4, q, 4, 2), (cx0 + size, q, 4, 2)]
    label_w = pixel_font.text_width("GPU")
    label = raster.rect_mask(width, height,
                             pixel_font.text_cells("GPU", cx0 + (size - label_w) // 2 + 1, cy0 + (size - 7) // 2))
    canvas.paint(chip, (0.40, 0.62, 0.88), 0.75)
    canvas.paint(raster.rect_mask(width, height, pins), (0.40, 0.62, 0.88), 0.6)
    canvas.paint(label, (0.75, 0.85, 0.95), 0.9)
    return width, height, canvas.rgba_bytes()


# ------------------------------------------------------------------- main

def write_file(path, data):
    # Written whole under a temporary name, then renamed: an interrupted
    # build never leaves a truncated picture that looks up to date.
    tmp = path + ".tmp"
    with open(tmp, "wb") as f:
        f.write(data)
    os.replace(tmp, path)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--out", required=True, help="the Graphics folder to write into")
    args = parser.parse_args(argv)
    os.makedirs(args.out, exist_ok=True)

    w, h, (r, g, b) = make_background()
    write_file(os.path.join(args.out, "bg.jpg"), jpeg_encoder.encode(w, h, r, g, b, JPEG_QUALITY))
    w, h, (r, g, b) = make_fur()
    write_file(os.path.join(args.out, "fur.jpg"), jpeg_encoder.encode(w, h, r, g, b, JPEG_QUALITY))
    for name, maker in (("logo_vxa.png", make_maker_logo),
                        ("logo_a.png", make_product_logo),
                        ("logo_opengl.png", lambda: make_api_logo("OpenGL")),
                        ("logo_direct3d.png", lambda: make_api_logo("Direct3D")),
                        ("logo_gpu.png", make_gpu_logo)):
        w, h, rgba = maker()
        write_file(os.path.join(args.out, name), png_writer.encode_rgba(w, h, rgba))
    return 0


if __name__ == "__main__":
    sys.exit(main())
