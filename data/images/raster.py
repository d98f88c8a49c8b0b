"""Drawing for the small generated pictures (logos): coverage masks of
polygons, rectangles and rounded rectangles, blurs, and an RGBA canvas that
lays colour over colour through such masks.

Masks are flat lists of floats (0..1), row-major, one per pixel. Polygons
are lists of contours (lists of (x, y) points, y down) filled by the
non-zero winding rule, so overlapping strokes join and a contour wound the
other way cuts a hole. Edges are anti-aliased: the coverage is exact along
each row and sampled on several sub-rows across it.
"""

import math


def polygon_mask(width, height, contours, subrows=5):
    mask = [0.0] * (width * height)
    edges = []
    for contour in contours:
        for i in range(len(contour)):
            (x0, y0), (x1, y1) = contour[i - 1], contour[i]
            if y0 != y1:
                edges.append((x0, y0, x1, y1))
    if not edges:
        return mask
    ymin = max(0, int(math.floor(min(min(e[1], e[3]) for e in edges))))
    ymax = min(height, int(math.ceil(max(max(e[1], e[3]) for e in edges))))
    weight = 1.0 / subrows
    for py in range(ymin, ymax):
        base = py * width
        for s in range(subrows):
            ys = py + (s + 0.5) * weight
            hits = []
            for x0, y0, x1, y1 in edges:
                if (y0 <= ys < y1) or (y1 <= ys < y0):
                    hits.append((x0 + (ys - y0) * (x1 - x0) / (y1 - y0), 1 if y1 > y0 else -1))
            if not hits:
                continue
            hits.sort()
            winding = 0
            for k in range(len(hits) - 1):
                winding += hits[k][1]
                if winding == 0:
                    continue
                xa = max(hits[k][0], 0.0)
                xb = min(hits[k + 1][0], float(width))
                if xb <= xa:
                    continue
                first, last = int(xa), min(int(math.ceil(xb)), width)
                for px in range(first, last):
                    overlap = min(px + 1.0, xb) - max(float(px), xa)
                    if overlap > 0:
                        mask[base + px] += overlap * weight
    return [min(v, 1.0) for v in mask]


def rect_mask(width, height, rects):
    """Pixel-aligned rectangles (x, y, w, h) with whole-pixel edges."""
    mask = [0.0] * (width * height)
    for x, y, w, h in rects:
        for py in range(max(0, y), min(height, y + h)):
            row = py * width
            for px in range(max(0, x), min(width, x + w)):
                mask[row + px] = 1.0
    return mask


def rounded_rect_mask(width, height, x0, y0, x1, y1, radius, thickness=None):
    """A filled rounded rectangle, or only its outline `thickness` wide."""
    mask = [0.0] * (width * height)
    cx, cy = (x0 + x1) / 2.0, (y0 + y1) / 2.0
    hx, hy = (x1 - x0) / 2.0 - radius, (y1 - y0) / 2.0 - radius
    for py in range(max(0, int(y0) - 1), min(height, int(math.ceil(y1)) + 1)):
        for px in range(max(0, int(x0) - 1), min(width, int(math.ceil(x1)) + 1)):
            qx = abs(px + 0.5 - cx) - hx
            qy = abs(py + 0.5 - cy) - hy
            outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
            d = outside + min(max(qx, qy), 0.0) - radius  # signed distance, negative inside
            if thickness is not None:
                d = abs(d + thickness / 2.0) - thickness / 2.0
            mask[py * width + px] = min(1.0, max(0.0, 0.5 - d))
    return mask


def shift_mask(mask, width, height, dx, dy):
    """The mask moved by whole pixels."""
    out = [0.0] * (width * height)
    for y in range(height):
        sy = y - dy
        if 0 <= sy < height:
            for x in range(width):
                sx = x - dx
                if 0 <= sx < width:
                    out[y * width + x] = mask[sy * width + sx]
    return out


def box_blur(mask, width, height, radius, passes=2):
    """A soft blur (repeated box filters of 2 * radius + 1 pixels). Only the
    part of the picture the mask touches, grown by the blur's reach, is
    worked on."""
    if radius <= 0:
        return list(mask)
    touched = [i for i, m in enumerate(mask) if m > 0.0]
    if not touched:
        return list(mask)
    reach = radius * passes
    ys = (touched[0] // width, touched[-1] // width)
    xs = [i % width for i in touched]
    x0, x1 = max(0, min(xs) - reach), min(width, max(xs) + reach + 1)
    y0, y1 = max(0, ys[0] - reach), min(height, ys[1] + reach + 1)
    if (x0, y0, x1, y1) != (0, 0, width, height):
        sub_w = x1 - x0
        sub = []
        for y in range(y0, y1):
            sub.extend(mask[y * width + x0:y * width + x1])
        blurred = box_blur(sub, sub_w, y1 - y0, radius, passes)
        out = [0.0] * (width * height)
        for y in range(y0, y1):
            out[y * width + x0:y * width + x1] = blurred[(y - y0) * sub_w:(y - y0 + 1) * sub_w]
        return out
    size = 2 * radius + 1
    cur = list(mask)
    for _ in range(passes):
        tmp = [0.0] * (width * height)
        for y in range(height):
            row = cur[y * width:(y + 1) * width]
            acc = sum(row[0:radius + 1])
            for x in range(width):
                tmp[y * width + x] = acc / size
                if x + radius + 1 < width:
                    acc += row[x + radius + 1]
                if x - radius >= 0:
                    acc -= row[x - radius]
        out = [0.0] * (width * height)
        for x in range(width):
            col = tmp[x::width]
            acc = sum(col[0:radius + 1])
            for y in range(height):
                out[y * width + x] = acc / size
                if y + radius + 1 < height:
                    acc += col[y + radius + 1]
                if y - radius >= 0:
                    acc -= col[y - radius]
        cur = out
    return cur


class Canvas:
    """RGBA pixels in 0..1, premultiplied while drawing."""

    def __init__(self, width, height):
        self.width, self.height = width, height
        n = width * height
        self.r, self.g, self.b, self.a = [0.0] * n, [0.0] * n, [0.0] * n, [0.0] * n

    def paint(self, mask, color, opacity=1.0):
        """Lays `color` over the canvas through the mask. `color` is (r, g,
        b) in 0..1 or a function of (x, y) returning one."""
        w = self.width
        fixed = None if callable(color) else color
        r, g, b, a = self.r, self.g, self.b, self.a
        for i, m in enumerate(mask):
            if m <= 0.0:
                continue
            cov = m * opacity
            cr, cg, cb = fixed if fixed else color(i % w, i // w)
            keep = 1.0 - cov
            r[i] = cr * cov + r[i] * keep
            g[i] = cg * cov + g[i] * keep
            b[i] = cb * cov + b[i] * keep
            a[i] = cov + a[i] * keep

    def add(self, mask, color):
        """Adds light: colour times mask, alpha raised to the brightest
        channel (for pictures blended additively)."""
        fixed = None if callable(color) else color
        w = self.width
        r, g, b, a = self.r, self.g, self.b, self.a
        for i, m in enumerate(mask):
            if m <= 0.0:
                continue
            cr, cg, cb = fixed if fixed else color(i % w, i // w)
            r[i] = min(1.0, r[i] + cr * m)
            g[i] = min(1.0, g[i] + cg * m)
            b[i] = min(1.0, b[i] + cb * m)
            a[i] = max(a[i], r[i], g[i], b[i])

    def rgba_bytes(self, premultiplied=False):
        """8-bit RGBA, rows top first. Straight colour for pictures blended
        by their alpha; premultiplied (colour already scaled by coverage,
        black where nothing was drawn) for pictures whose colour is added to
        the scene as it is."""
        out = bytearray(4 * self.width * self.height)
        for i, alpha in enumerate(self.a):
            if alpha <= 0.0:
                continue
            inv = 1.0 if premultiplied else 1.0 / alpha
            out[4 * i] = min(255, int(self.r[i] * inv * 255.0 + 0.5))
            out[4 * i + 1] = min(255, int(self.g[i] * inv * 255.0 + 0.5))
            out[4 * i + 2] = min(255, int(self.b[i] * inv * 255.0 + 0.5))
            out[4 * i + 3] = min(255, int(alpha * 255.0 + 0.5))
        return bytes(out)
