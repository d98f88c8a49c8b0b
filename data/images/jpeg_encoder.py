"""A small baseline JPEG encoder (JFIF, 8-bit YCbCr, 4:2:0, Huffman coded).

It runs at build time in plain Python, so the arithmetic is arranged to keep
the interpreter out of the inner loops: the colour conversion, the chroma
subsampling and the 8x8 DCT work on whole images at once, packed into Python
big integers with one 64-bit (or 32-bit) field per block (or pixel). One
multiplication of such an integer by a small constant multiplies every field,
so the DCT of all blocks of a plane takes 1024 big-integer operations instead
of a loop over blocks. Fields never carry into each other: every sum is kept
non-negative by a bias, and every field is wider than its largest value.

The Huffman tables are built for each image from its own symbol counts (the
method of the JPEG standard's annex K.2), so no table has to be copied in.
"""

import heapq
from collections import Counter
from itertools import repeat
import math
import sys
from array import array

# Natural (row-major) index of each zig-zag position.
ZIGZAG = [
    0, 1, 8, 16, 9, 2, 3, 10, 17, 24, 32, 25, 18, 11, 4, 5,
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6, 7, 14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
]

# The usual luminance and chrominance quantisation tables, row-major, which
# the quality setting scales.
BASE_LUMA_Q = [
    16, 11, 10, 16, 24, 40, 51, 61,
    12, 12, 14, 19, 26, 58, 60, 55,
    14, 13, 16, 24, 40, 57, 69, 56,
    14, 17, 22, 29, 51, 87, 80, 62,
    18, 22, 37, 56, 68, 109, 103, 77,
    24, 35, 55, 64, 81, 104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101,
    72, 92, 95, 98, 112, 100, 103, 99,
]
BASE_CHROMA_Q = [
    17, 18, 24, 47, 99, 99, 99, 99,
    18, 21, 26, 66, 99, 99, 99, 99,
    24, 26, 56, 99, 99, 99, 99, 99,
    47, 66, 99, 99, 99, 99, 99, 99,
] + [99] * 32

COEF_BITS = 15                  # fixed-point scale of the DCT matrix
ROW_BIAS = 1 << 27              # keeps the first pass's fields positive
COL_BIAS = 1 << 47              # and the second's
FIELD = 8                       # bytes per block field
LIFT = 1 << 20                  # added to every quantised coefficient in flight


class JpegError(Exception):
    pass


def scaled_quant_table(base, quality):
    """The table for a quality of 1..100, as the common encoders scale it."""
    quality = max(1, min(100, int(quality)))
    scale = 5000 // quality if quality < 50 else 200 - 2 * quality
    return [max(1, min(255, (q * scale + 50) // 100)) for q in base]


def _dct_matrix():
    m = []
    for u in range(8):
        cu = math.sqrt(0.5) if u == 0 else 1.0
        m.append([round((1 << COEF_BITS) * 0.5 * cu * math.cos((2 * x + 1) * u * math.pi / 16))
                  for x in range(8)])
    return m


DCT = _dct_matrix()


def widen(data, width):
    """The bytes as one integer with a `width`-byte field per byte."""
    buf = bytearray(width * len(data))
    buf[0::width] = data
    return int.from_bytes(buf, "little")


def ones(count, width):
    return int.from_bytes((b"\x01" + b"\x00" * (width - 1)) * count, "little")


def rgb_to_ycbcr(r, g, b):
    """Full-range YCbCr planes from equal-length R, G, B byte planes.

    Fields hold the value times 65536 (16.16 fixed point); the weights of each
    output add up to 65536, so no field exceeds 24 bits and byte 2 of each
    32-bit field is the rounded result.
    """
    n = len(r)
    R, G, B = widen(r, 4), widen(g, 4), widen(b, 4)
    one = ones(n, 4)
    y = 19595 * R + 38470 * G + 7471 * B + 32768 * one
    half = (128 << 16) + 32767
    cb = 32768 * B + half * one - (11059 * R + 21709 * G)
    cr = 32768 * R + half * one - (27439 * G + 5329 * B)
    return tuple(v.to_bytes(4 * n, "little")[2::4] for v in (y, cb, cr))


def pad_plane(plane, w, h, pw, ph):
    """Grows a plane to pw x ph by repeating its last column and row."""
    if (pw, ph) == (w, h):
        return plane
    rows = []
    for y in range(h):
        row = plane[y * w:(y + 1) * w]
        rows.append(row + row[-1:] * (pw - w))
    rows.extend([rows[-1]] * (ph - h))
    return b"".join(rows)


def downsample(plane, w, h):
    """Each 2x2 square averaged (rounded); w and h even."""
    even = b"".join(plane[y * w:(y + 1) * w] for y in range(0, h, 2))
    odd = b"".join(plane[y * w:(y + 1) * w] for y in range(1, h, 2))
    n = len(even) // 2
    total = widen(even[0::2], 2) + widen(even[1::2], 2) + widen(odd[0::2], 2) + widen(odd[1::2], 2)
    # (sum + 2) / 4 lands in the high byte of each 16-bit field after << 6.
    return ((total + 2 * ones(n, 2)) << 6).to_bytes(2 * n, "little")[1::2]


def quantised_blocks(plane, w, h, qtable):
    """The quantised DCT coefficients of every 8x8 block of the plane, in
    raster order of blocks, each a 64-tuple in zig-zag order."""
    nbx, nby = w // 8, h // 8
    nb = nbx * nby
    # P[y][x]: sample (x, y) of every block.
    buf = bytearray(FIELD * nb)
    P = [[0] * 8 for _ in range(8)]
    for y in range(8):
        for x in range(8):
            buf[0::FIELD] = b"".join(plane[(8 * r + y) * w + x:(8 * r + y + 1) * w:8] for r in range(nby))
            P[y][x] = int.from_bytes(buf, "little")
    one = ones(nb, FIELD)
    row_bias = ROW_BIAS * one
    col_bias = COL_BIAS * one

    def transform(inputs, bias):
        out = []
        for u in range(8):
            pos = neg = 0
            for x, c in enumerate(DCT[u]):
                if c > 0:
                    pos += c * inputs[x]
                elif c < 0:
                    neg += -c * inputs[x]
            out.append(pos + bias - neg)
        return out

    rows = [transform(P[y], row_bias) for y in range(8)]          # rows[y][u]
    coef = [transform([rows[y][u] for y in range(8)], col_bias) for u in range(8)]  # coef[u][v]

    col_sums = [sum(c) for c in DCT]
    scale = 1 << (2 * COEF_BITS)
    planes = [None] * 64
    for v in range(8):
        for u in range(8):
            # Remove the biases and the level shift (the response to a flat
            # 128), then round to the nearest multiple of the quantiser. The
            # quotient comes out lifted by LIFT so that every field stays
            # non-negative; the coefficient is the value minus LIFT.
            offset = COL_BIAS + ROW_BIAS * col_sums[v] + 128 * col_sums[u] * col_sums[v]
            d = qtable[v * 8 + u] * scale
            lift = LIFT * d - offset + d // 2
            values = array("Q")
            values.frombytes((coef[u][v] + lift * one).to_bytes(FIELD * nb, "little"))
            if sys.byteorder == "big":
                values.byteswap()
            if values and min(values) >= LIFT * d and max(values) < (LIFT + 1) * d:
                # Every block rounds to zero here (most high frequencies of
                # a smooth picture): no division needed.
                planes[v * 8 + u] = repeat(LIFT, nb)
            else:
                planes[v * 8 + u] = map(d.__rfloordiv__, values)
    return list(zip(*[planes[z] for z in ZIGZAG]))


FLAT_AC = (LIFT,) * 63


def symbolise(blocks, component, state):
    """Appends the coded items of some blocks of one component to
    state["items"], keeping the component's DC prediction in state["pred"].
    An item is (table << 20) | (symbol << 12) | extra bits; the number of
    extra bits follows from the symbol."""
    pred = state["pred"][component]
    items = state["items"]
    dc_table = 0 if component == 0 else 2
    ac_table = (dc_table + 1) << 20
    dc_table <<= 20
    eob = ac_table
    zrl = ac_table | (0xF0 << 12)
    for blk in blocks:
        dc = blk[0] - LIFT
        diff = dc - pred
        pred = dc
        size = diff.bit_length() if diff >= 0 else (-diff).bit_length()
        items.append(dc_table | (size << 12) | (diff if diff >= 0 else diff + (1 << size) - 1))
        if blk[1:] == FLAT_AC:
            items.append(eob)
            continue
        last = 0
        for k in [k for k in range(1, 64) if blk[k] != LIFT]:
            run = k - last - 1
            while run > 15:
                items.append(zrl)
                run -= 16
            v = blk[k] - LIFT
            if v >= 0:
                size = v.bit_length()
                extra = v
            else:
                size = (-v).bit_length()
                extra = v + (1 << size) - 1
            if size > 10:
                raise JpegError("coefficient out of range")
            items.append(ac_table | (((run << 4) | size) << 12) | extra)
            last = k
        if last != 63:
            items.append(eob)
    state["pred"][component] = pred


def huffman_table(counts):
    """(bits, values) of a length-limited (16 bits) Huffman code for the
    symbols' counts, with the all-ones code left unused (annex K.2)."""
    symbols = sorted(counts)
    # A reserved symbol (256) with the smallest count takes the longest code,
    # which is dropped at the end so that no code is all ones.
    heap = [(counts[s], s, [s]) for s in symbols] + [(0, 256, [256])]
    heapq.heapify(heap)
    size = {s: 0 for s in symbols}
    size[256] = 0
    while len(heap) > 1:
        c1, k1, m1 = heapq.heappop(heap)
        c2, k2, m2 = heapq.heappop(heap)
        for s in m1 + m2:
            size[s] += 1
        heapq.heappush(heap, (c1 + c2, min(k1, k2), m1 + m2))
    if len(size) == 1:
        size[256] = 1
    bits = [0] * 33
    for s, n in size.items():
        bits[max(n, 1)] += 1
    # Move codes longer than 16 bits up, as the standard describes.
    for i in range(32, 16, -1):
        while bits[i] > 0:
            j = i - 2
            while bits[j] == 0:
                j -= 1
            bits[i] -= 2
            bits[i - 1] += 1
            bits[j + 1] += 2
            bits[j] -= 1
    i = 16
    while bits[i] == 0:
        i -= 1
    bits[i] -= 1  # the reserved symbol
    # Symbols by increasing code length (ties by symbol), lengths as limited.
    order = sorted(symbols, key=lambda s: (size[s], s))
    return bits[1:17], order


def canonical_codes(bits, values):
    codes = {}
    code = 0
    k = 0
    for length in range(1, 17):
        for _ in range(bits[length - 1]):
            codes[values[k]] = (code, length)
            code += 1
            k += 1
        code <<= 1
    return codes


def _segment(marker, payload):
    return bytes([0xFF, marker]) + (len(payload) + 2).to_bytes(2, "big") + payload


def encode(width, height, r, g, b, quality=90):
    """Encodes an RGB image (three byte planes, rows top first) as JPEG."""
    if width <= 0 or height <= 0 or width > 65535 or height > 65535:
        raise JpegError("bad image size")
    if not (len(r) == len(g) == len(b) == width * height):
        raise JpegError("plane sizes do not match the image")
    pw, ph = (width + 15) // 16 * 16, (height + 15) // 16 * 16
    y, cb, cr = rgb_to_ycbcr(r, g, b)
    y, cb, cr = (pad_plane(p, width, height, pw, ph) for p in (y, cb, cr))
    cb, cr = downsample(cb, pw, ph), downsample(cr, pw, ph)
    ql = scaled_quant_table(BASE_LUMA_Q, quality)
    qc = scaled_quant_table(BASE_CHROMA_Q, quality)
    yb = quantised_blocks(y, pw, ph, ql)
    cbb = quantised_blocks(cb, pw // 2, ph // 2, qc)
    crb = quantised_blocks(cr, pw // 2, ph // 2, qc)

    # Minimum coded units of 16x16 pixels: four luminance blocks, then one
    # block of each chroma plane.
    nbx = pw // 8
    mcux, mcuy = pw // 16, ph // 16
    state = {"pred": [0, 0, 0], "items": []}
    for my in range(mcuy):
        for mx in range(mcux):
            top = 2 * my * nbx + 2 * mx
            symbolise((yb[top], yb[top + 1], yb[top + nbx], yb[top + nbx + 1]), 0, state)
            c = my * mcux + mx
            symbolise((cbb[c],), 1, state)
            symbolise((crb[c],), 2, state)
    items = state["items"]

    # Symbol counts per table, then the tables, then each distinct item's
    # bits once.
    uses = Counter(items)
    counts = [Counter(), Counter(), Counter(), Counter()]
    for item, n in uses.items():
        counts[item >> 20][(item >> 12) & 0xFF] += n
    tables = [huffman_table(c) for c in counts]
    codes = [canonical_codes(bits, vals) for bits, vals in tables]
    text = {}
    for item in uses:
        table, sym, extra = item >> 20, (item >> 12) & 0xFF, item & 0xFFF
        size = sym if table % 2 == 0 else sym & 15
        code, length = codes[table][sym]
        text[item] = format((code << size) | extra, "0%db" % (length + size))
    bitstring = "".join([text[i] for i in items])
    bitstring += "1" * (-len(bitstring) % 8)
    scan = int(bitstring, 2).to_bytes(len(bitstring) // 8, "big")
    scan = scan.replace(b"\xff", b"\xff\x00")

    out = [b"\xff\xd8"]
    out.append(_segment(0xE0, b"JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00"))
    out.append(_segment(0xDB, bytes([0]) + bytes(ql[z] for z in ZIGZAG) +
                        bytes([1]) + bytes(qc[z] for z in ZIGZAG)))
    out.append(_segment(0xC0, bytes([8]) + height.to_bytes(2, "big") + width.to_bytes(2, "big") +
                        bytes([3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1])))
    dht = b""
    for cls_id, (bits, vals) in zip((0x00, 0x10, 0x01, 0x11), tables):
        dht += bytes([cls_id]) + bytes(bits) + bytes(vals)
    out.append(_segment(0xC4, dht))
    out.append(_segment(0xDA, bytes([3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0])))
    out.append(scan)
    out.append(b"\xff\xd9")
    return b"".join(out)


def test_pattern(width=100, height=75):
    """Smooth ramps and waves that the decoding test recomputes: red
    across, green down, blue a product of a sine and a cosine. The size is
    not a multiple of 16, so the edge padding is exercised too."""
    r, g, b = bytearray(), bytearray(), bytearray()
    for y in range(height):
        for x in range(width):
            r.append(x * 255 // (width - 1))
            g.append(y * 255 // (height - 1))
            b.append(int(128 + 100 * math.sin(x / 9.0) * math.cos(y / 7.0)))
    return width, height, bytes(r), bytes(g), bytes(b)


if __name__ == "__main__":
    # python3 jpeg_encoder.py OUT.jpg: writes the test pattern.
    if len(sys.argv) != 2:
        sys.exit("usage: jpeg_encoder.py OUT.jpg")
    w, h, r, g, b = test_pattern()
    with open(sys.argv[1], "wb") as f:
        f.write(encode(w, h, r, g, b, 92))
