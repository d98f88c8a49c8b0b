#!/usr/bin/env python3
"""Builds the two solid models the program draws under its fur shells.

"VXA" is the extruded, bevelled lettering V X A; "HD6970" is a graphics board
(circuit board, cooler shroud with a fan in a round recess, bracket). Both are
closed solids, centred on the origin and about 140 units across, with
outward unit normals, flat-shaded hard edges (split vertices) and texture
coordinates in [0, 1].

The script runs at build time on the build host, also for the Windows cross
build, so it uses the standard library only. It writes one binary file that
data/adata.cpp embeds; the layout (little-endian) is

    header : char magic[4] = "ADAT", u32 version = 1, u32 meshCount, u32 0
    entries: meshCount x { char name[16] (NUL padded), u32 numVertices,
                           u32 numFaces, u32 offset, u32 size }
    blobs  : at `offset` (a multiple of 16) from the start of the file:
             numVertices x 8 float32 (px py pz nx ny nz u v), then
             numFaces x 3 uint32 vertex indices, counter-clockwise seen from
             outside; size = 32 * numVertices + 12 * numFaces.

Every shared edge point is computed by one function from the same two end
points, so faces that meet along an edge get bit-identical positions; the
self-check at the end relies on that to prove each model watertight before the
file is written.
"""

import argparse
import math
import os
import struct
import sys

MAGIC = b"ADAT"
VERSION = 1
NAME_BYTES = 16
BLOB_ALIGN = 16

EPS = 1e-9


class MeshError(Exception):
    """A model could not be built; the build stops with this message."""


# --------------------------------------------------------------- 2D outlines
# Outlines are lists of (x, y) tuples. The solid lies on the left of every
# edge: outer outlines run counter-clockwise, holes clockwise.

def orient(a, b, c):
    """Twice the signed area of triangle abc, positive when counter-clockwise."""
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0])


def loop_area(loop):
    s = 0.0
    for i in range(len(loop)):
        (x0, y0), (x1, y1) = loop[i - 1], loop[i]
        s += x0 * y1 - x1 * y0
    return s / 2


def counter_clockwise(loop):
    return list(loop) if loop_area(loop) > 0 else list(reversed(loop))


def clockwise(loop):
    return list(reversed(loop)) if loop_area(loop) > 0 else list(loop)


def edge_point(a, b, k, n):
    """Point k of n along the edge a-b.

    Always interpolated from the lexicographically smaller end, so the two
    faces that share an edge (whichever way round they walk it) produce the
    same bits."""
    if k == 0:
        return a
    if k == n:
        return b
    if b < a:
        a, b, k = b, a, n - k
    t = k / n
    return (a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t)


def refine_loop(loop, n):
    """The loop with every edge cut into n equal pieces."""
    out = []
    for i in range(len(loop)):
        a, b = loop[i], loop[(i + 1) % len(loop)]
        out.extend(edge_point(a, b, k, n) for k in range(n))
    return out


def refine_by_length(loop, max_len):
    """The loop with every edge longer than max_len cut into equal pieces."""
    out = []
    for i in range(len(loop)):
        a, b = loop[i], loop[(i + 1) % len(loop)]
        pieces = max(1, math.ceil(math.dist(a, b) / max_len - 1e-9))
        out.extend(edge_point(a, b, k, pieces) for k in range(pieces))
    return out


def circle(cx, cy, r, segments, phase=0.0):
    """A counter-clockwise circle outline."""
    return [(cx + r * math.cos(phase + 2 * math.pi * i / segments),
             cy + r * math.sin(phase + 2 * math.pi * i / segments))
            for i in range(segments)]


def rounded_rect(x0, y0, x1, y1, r, corner_segments):
    """A counter-clockwise rectangle with rounded corners."""
    pts = []
    corners = ((x1 - r, y0 + r, -90.0), (x1 - r, y1 - r, 0.0),
               (x0 + r, y1 - r, 90.0), (x0 + r, y0 + r, 180.0))
    for cx, cy, start in corners:
        for i in range(corner_segments + 1):
            a = math.radians(start + 90.0 * i / corner_segments)
            pts.append((cx + r * math.cos(a), cy + r * math.sin(a)))
    return pts


def on_segment(p, a, b):
    return (min(a[0], b[0]) - EPS <= p[0] <= max(a[0], b[0]) + EPS and
            min(a[1], b[1]) - EPS <= p[1] <= max(a[1], b[1]) + EPS)


def segments_touch(p1, p2, q1, q2):
    """Do the closed segments p1-p2 and q1-q2 share any point?"""
    d1, d2 = orient(q1, q2, p1), orient(q1, q2, p2)
    d3, d4 = orient(p1, p2, q1), orient(p1, p2, q2)
    if ((d1 > EPS and d2 < -EPS) or (d1 < -EPS and d2 > EPS)) and \
       ((d3 > EPS and d4 < -EPS) or (d3 < -EPS and d4 > EPS)):
        return True
    return ((abs(d1) <= EPS and on_segment(p1, q1, q2)) or
            (abs(d2) <= EPS and on_segment(p2, q1, q2)) or
            (abs(d3) <= EPS and on_segment(q1, p1, p2)) or
            (abs(d4) <= EPS and on_segment(q2, p1, p2)))


def inside_loop(p, loop):
    """Even-odd test; doubled bridge edges cancel out."""
    inside = False
    for i in range(len(loop)):
        a, b = loop[i - 1], loop[i]
        if (a[1] > p[1]) != (b[1] > p[1]):
            x = a[0] + (p[1] - a[1]) * (b[0] - a[0]) / (b[1] - a[1])
            if x > p[0]:
                inside = not inside
    return inside


def edges_of(loop):
    return [(loop[i], loop[(i + 1) % len(loop)]) for i in range(len(loop))]


def check_simple(loops, what):
    """Raises unless the loops are simple and do not cross each other."""
    edges = []
    for li, loop in enumerate(loops):
        for i, e in enumerate(edges_of(loop)):
            edges.append((li, i, len(loop), e))
    for x in range(len(edges)):
        la, ia, na, (a0, a1) = edges[x]
        for y in range(x + 1, len(edges)):
            lb, ib, nb, (b0, b1) = edges[y]
            if la == lb and (ib == (ia + 1) % na or ia == (ib + 1) % nb):
                continue  # neighbours share a corner by construction
            if segments_touch(a0, a1, b0, b1):
                raise MeshError("%s: outline crosses itself near (%.2f, %.2f)"
                                % (what, a0[0], a0[1]))


def left_normal(a, b):
    dx, dy = b[0] - a[0], b[1] - a[1]
    length = math.hypot(dx, dy)
    if length < EPS:
        raise MeshError("outline has a zero-length edge at (%.3f, %.3f)" % a)
    return (-dy / length, dx / length)


def inset_loop(loop, d, what):
    """The loop moved d units into the solid (mitred corners)."""
    out = []
    m = len(loop)
    for i in range(m):
        p0, p1, p2 = loop[i - 1], loop[i], loop[(i + 1) % m]
        n1, n2 = left_normal(p0, p1), left_normal(p1, p2)
        c = n1[0] * n2[0] + n1[1] * n2[1]
        if c < -0.97:
            raise MeshError("%s: corner at (%.2f, %.2f) too sharp to bevel" % (what, p1[0], p1[1]))
        s = d / (1.0 + c)
        out.append((p1[0] + (n1[0] + n2[0]) * s, p1[1] + (n1[1] + n2[1]) * s))
    for i in range(m):
        a0, a1 = loop[i], loop[(i + 1) % m]
        b0, b1 = out[i], out[(i + 1) % m]
        if (a1[0] - a0[0]) * (b1[0] - b0[0]) + (a1[1] - a0[1]) * (b1[1] - b0[1]) <= 0:
            raise MeshError("%s: bevel wider than the stroke near (%.2f, %.2f)" % (what, a0[0], a0[1]))
    return out


# ------------------------------------------------------------- triangulation

def bridge_ok(h, o, loops):
    for loop in loops:
        for u, v in edges_of(loop):
            if u in (h, o) or v in (h, o):
                continue
            if segments_touch(h, o, u, v):
                return False
    return True


def merge_holes(outer, holes):
    """One outline that visits every hole through a doubled bridge edge."""
    poly = list(outer)
    pending = sorted(holes, key=lambda hole: -max(p[0] for p in hole))
    for hi, hole in enumerate(pending):
        others = pending[hi + 1:]
        pairs = sorted((math.dist(h, o), i, j)
                       for j, h in enumerate(hole) for i, o in enumerate(poly))
        for _, i, j in pairs:
            h, o = hole[j], poly[i]
            mid = ((h[0] + o[0]) / 2, (h[1] + o[1]) / 2)
            if not inside_loop(mid, poly) or any(inside_loop(mid, x) for x in [hole] + others):
                continue
            if bridge_ok(h, o, [poly, hole] + others):
                break
        else:
            raise MeshError("no way into a hole at (%.2f, %.2f)" % hole[0])
        poly = poly[:i + 1] + hole[j:] + hole[:j + 1] + [poly[i]] + poly[i + 1:]
    return poly


def point_in_triangle(p, a, b, c):
    return orient(a, b, p) >= -EPS and orient(b, c, p) >= -EPS and orient(c, a, p) >= -EPS


def ear_clip(P):
    """Index triangles of a simple counter-clockwise polygon (bridges allowed)."""
    idx = list(range(len(P)))
    tris = []
    k = 0
    while len(idx) > 3:
        m = len(idx)
        for step in range(m):
            kk = (k + step) % m
            ia, ib, ic = idx[kk - 1], idx[kk], idx[(kk + 1) % m]
            a, b, c = P[ia], P[ib], P[ic]
            if orient(a, b, c) <= EPS:
                continue
            corner = (a, b, c)
            if any(P[j] not in corner and point_in_triangle(P[j], a, b, c) for j in idx):
                continue
            # The diagonal a-c must not cut through the rest of the outline.
            if any(P[u] not in corner and P[v] not in corner and segments_touch(a, c, P[u], P[v])
                   for u, v in zip(idx, idx[1:] + idx[:1])):
                continue
            tris.append((ia, ib, ic))
            del idx[kk]
            k = kk % len(idx)
            break
        else:
            raise MeshError("cannot triangulate an outline near (%.2f, %.2f)" % P[idx[0]])
    if orient(P[idx[0]], P[idx[1]], P[idx[2]]) <= EPS:
        raise MeshError("outline ends in a flat triangle near (%.2f, %.2f)" % P[idx[0]])
    tris.append(tuple(idx))
    return tris


def angle_at(p, a, b):
    ax, ay, bx, by = a[0] - p[0], a[1] - p[1], b[0] - p[0], b[1] - p[1]
    return abs(math.atan2(ax * by - ay * bx, ax * bx + ay * by))


def delaunay_flips(P, tris):
    """Flips diagonals until no triangle pair has a point inside the other's
    circumcircle: ear clipping leaves long fans that light and texture badly."""
    tris = [list(t) for t in tris]
    for _ in range(500):
        owner = {}
        for ti, t in enumerate(tris):
            for e in range(3):
                owner[(t[e], t[(e + 1) % 3])] = ti
        touched = set()
        for (a, b), ti in owner.items():
            tj = owner.get((b, a))
            if tj is None or ti in touched or tj in touched:
                continue
            c = next(v for v in tris[ti] if v not in (a, b))
            d = next(v for v in tris[tj] if v not in (a, b))
            pa, pb, pc, pd = P[a], P[b], P[c], P[d]
            if angle_at(pc, pa, pb) + angle_at(pd, pa, pb) <= math.pi + 1e-9:
                continue
            if orient(pa, pd, pc) <= EPS or orient(pd, pb, pc) <= EPS:
                continue
            tris[ti], tris[tj] = [a, d, c], [d, b, c]
            touched.update((ti, tj))
        if not touched:
            return [tuple(t) for t in tris]
    raise MeshError("triangulation did not settle")


class Region:
    """A triangulated planar region (outline minus holes), reused for the
    front and the back of a solid."""

    def __init__(self, outer, holes, what):
        check_simple([outer] + holes, what)
        self.points = merge_holes(outer, holes)
        self.tris = delaunay_flips(self.points, ear_clip(self.points))
        want = loop_area(outer) + sum(loop_area(h) for h in holes)
        got = sum(orient(*(self.points[i] for i in t)) / 2 for t in self.tris)
        if abs(got - want) > 1e-6 * max(1.0, abs(want)):
            raise MeshError("%s: triangles cover %.4f of %.4f area" % (what, got, want))


# --------------------------------------------------------------------- meshes

def v_sub(a, b):
    return (a[0] - b[0], a[1] - b[1], a[2] - b[2])


def v_cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def v_dot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def v_unit(a):
    length = math.sqrt(v_dot(a, a))
    if length < 1e-12:
        raise MeshError("zero-length normal")
    return (a[0] / length, a[1] / length, a[2] / length)


def tri_normal(p0, p1, p2):
    return v_unit(v_cross(v_sub(p1, p0), v_sub(p2, p0)))


class Mesh:
    """Vertices (position, normal, texture coordinate) and triangles.

    A texture coordinate is either (u, v), ("wrap", u) -- v follows the height
    along z -- or None: a projection onto the plane the normal faces most,
    worked out once the model's final size is known."""

    def __init__(self, name):
        self.name = name
        self.pos, self.nrm, self.uv, self.tris = [], [], [], []

    def vert(self, p, n, uv=None):
        self.pos.append(p)
        self.nrm.append(n)
        self.uv.append(uv)
        return len(self.pos) - 1

    def tri(self, a, b, c):
        self.tris.append((a, b, c))

    def quad(self, a, b, c, d):
        self.tri(a, b, c)
        self.tri(a, c, d)

    def merge(self, other, rot=None, move=(0.0, 0.0, 0.0)):
        def apply(m, p):
            if m is None:
                return p
            return tuple(m[r][0] * p[0] + m[r][1] * p[1] + m[r][2] * p[2] for r in range(3))
        base = len(self.pos)
        for p, n, uv in zip(other.pos, other.nrm, other.uv):
            q = apply(rot, p)
            self.vert((q[0] + move[0], q[1] + move[1], q[2] + move[2]), apply(rot, n), uv)
        self.tris.extend((a + base, b + base, c + base) for a, b, c in other.tris)


def rot_x(deg):
    c, s = math.cos(math.radians(deg)), math.sin(math.radians(deg))
    return ((1, 0, 0), (0, c, -s), (0, s, c))


def rot_z(deg):
    c, s = math.cos(math.radians(deg)), math.sin(math.radians(deg))
    return ((c, -s, 0), (s, c, 0), (0, 0, 1))


def mat_mul(a, b):
    return tuple(tuple(sum(a[r][k] * b[k][c] for k in range(3)) for c in range(3)) for r in range(3))


# ------------------------------------------------------------ building blocks

def emit_cap(mesh, region, z, up, n):
    """The region at height z, facing +z or -z, each triangle cut into n*n."""
    normal = (0.0, 0.0, 1.0 if up else -1.0)
    ids = {}

    def vid(p):
        if p not in ids:
            ids[p] = mesh.vert((p[0], p[1], z), normal)
        return ids[p]

    for ta, tb, tc in region.tris:
        A, B, C = region.points[ta], region.points[tb], region.points[tc]
        g = {}
        for i in range(n + 1):
            for j in range(n + 1 - i):
                if j == 0:
                    p = edge_point(A, B, i, n)
                elif i == 0:
                    p = edge_point(A, C, j, n)
                elif i + j == n:
                    p = edge_point(B, C, j, n)
                else:
                    p = (A[0] + (B[0] - A[0]) * i / n + (C[0] - A[0]) * j / n,
                         A[1] + (B[1] - A[1]) * i / n + (C[1] - A[1]) * j / n)
                g[i, j] = vid(p)
        for i in range(n):
            for j in range(n - i):
                sub = [(g[i, j], g[i + 1, j], g[i, j + 1])]
                if i + j < n - 1:
                    sub.append((g[i + 1, j], g[i + 1, j + 1], g[i, j + 1]))
                for a, b, c in sub:
                    if up:
                        mesh.tri(a, b, c)
                    else:
                        mesh.tri(a, c, b)


def level(z0, z1, r, rows):
    if r == 0:
        return z0
    if r == rows:
        return z1
    return z0 + (z1 - z0) * r / rows


def flat_wall(mesh, loop, z0, z1, n, rows):
    """Vertical faces from z0 up to z1, one flat face per outline edge."""
    for i in range(len(loop)):
        a, b = loop[i], loop[(i + 1) % len(loop)]
        ln = left_normal(a, b)
        normal = (-ln[0], -ln[1], 0.0)
        g = [[mesh.vert((*edge_point(a, b, k, n), level(z0, z1, r, rows)), normal)
              for r in range(rows + 1)] for k in range(n + 1)]
        for k in range(n):
            for r in range(rows):
                mesh.quad(g[k][r], g[k + 1][r], g[k + 1][r + 1], g[k][r + 1])


def round_wall(mesh, loop, centre, z0, z1, n, rows):
    """A smooth vertical wall around an outline that circles `centre`,
    normals pointing straight away from it (towards it for holes)."""
    pts = refine_loop(loop, n)
    sign = 1.0 if loop_area(loop) > 0 else -1.0
    perimeter = sum(math.dist(pts[i - 1], pts[i]) for i in range(len(pts)))
    cols, run = [], 0.0
    for k in range(len(pts) + 1):
        p = pts[k % len(pts)]
        if k:
            run += math.dist(pts[k - 1], p)
        u = 1.0 if k == len(pts) else run / perimeter
        normal = v_unit((sign * (p[0] - centre[0]), sign * (p[1] - centre[1]), 0.0))
        cols.append([mesh.vert((p[0], p[1], level(z0, z1, r, rows)), normal, ("wrap", u))
                     for r in range(rows + 1)])
    for k in range(len(pts)):
        for r in range(rows):
            mesh.quad(cols[k][r], cols[k + 1][r], cols[k + 1][r + 1], cols[k][r + 1])


def chamfer(mesh, outer, inner, z_outer, z_inner, n):
    """The sloping strip between an outline at z_outer and its inset at z_inner."""
    m = len(outer)
    for i in range(m):
        a, b, c, d = outer[i], outer[(i + 1) % m], inner[i], inner[(i + 1) % m]
        o = [(*edge_point(a, b, k, n), z_outer) for k in range(n + 1)]
        q = [(*edge_point(c, d, k, n), z_inner) for k in range(n + 1)]
        rising = z_inner > z_outer
        normal = tri_normal(o[0], o[n], q[n]) if rising else tri_normal(o[0], q[n], o[n])
        oi = [mesh.vert(p, normal) for p in o]
        qi = [mesh.vert(p, normal) for p in q]
        for k in range(n):
            if rising:
                mesh.quad(oi[k], oi[k + 1], qi[k + 1], qi[k])
            else:
                mesh.quad(oi[k], qi[k], qi[k + 1], oi[k + 1])


def disc(mesh, centre, loop, z, up, rings):
    """A flat disc from `centre` out to a counter-clockwise loop, in rings."""
    normal = (0.0, 0.0, 1.0 if up else -1.0)
    mid = mesh.vert((centre[0], centre[1], z), normal)
    ring_ids = []
    for r in range(1, rings + 1):
        ring = []
        for p in loop:
            if r < rings:
                t = r / rings
                p = (centre[0] + (p[0] - centre[0]) * t, centre[1] + (p[1] - centre[1]) * t)
            ring.append(mesh.vert((p[0], p[1], z), normal))
        ring_ids.append(ring)
    m = len(loop)

    def face(a, b, c):
        if up:
            mesh.tri(a, b, c)
        else:
            mesh.tri(a, c, b)

    for i in range(m):
        face(mid, ring_ids[0][i], ring_ids[0][(i + 1) % m])
    for r in range(rings - 1):
        inner, outer = ring_ids[r], ring_ids[r + 1]
        for i in range(m):
            j = (i + 1) % m
            face(inner[i], outer[i], outer[j])
            face(inner[i], outer[j], inner[j])


def prism(mesh, outer, holes, z0, z1, n=1, rows=1, bevel=0.0, what="prism"):
    """An outline (with through-holes) extruded from z0 to z1, optionally with
    45-degree bevels on both faces."""
    loops = [counter_clockwise(outer)] + [clockwise(h) for h in holes]
    faces = [inset_loop(l, bevel, what) for l in loops] if bevel > 0 else loops
    region = Region(faces[0], faces[1:], what)
    emit_cap(mesh, region, z1, True, n)
    emit_cap(mesh, region, z0, False, n)
    for loop, face in zip(loops, faces):
        if bevel > 0:
            chamfer(mesh, loop, face, z1 - bevel, z1, n)
            chamfer(mesh, loop, face, z0 + bevel, z0, n)
        flat_wall(mesh, loop, z0 + bevel, z1 - bevel, n, rows)


def cylinder(mesh, centre, radius, z0, z1, segments, rows, rings, phase=0.0):
    loop = circle(centre[0], centre[1], radius, segments, phase)
    round_wall(mesh, loop, centre, z0, z1, 1, rows)
    disc(mesh, centre, loop, z1, True, rings)
    disc(mesh, centre, loop, z0, False, rings)


def box(mesh, lo, hi, cell):
    """An axis-aligned box, each face a grid of roughly cell-sized squares."""
    ticks = []
    for a in range(3):
        cnt = max(1, round((hi[a] - lo[a]) / cell))
        ticks.append([level(lo[a], hi[a], k, cnt) for k in range(cnt + 1)])
    for a in range(3):
        b, c = (a + 1) % 3, (a + 2) % 3  # e_b x e_c = e_a
        for side, value in ((-1.0, lo[a]), (1.0, hi[a])):
            normal = [0.0, 0.0, 0.0]
            normal[a] = side
            g = []
            for tb in ticks[b]:
                row = []
                for tc in ticks[c]:
                    p = [0.0, 0.0, 0.0]
                    p[a], p[b], p[c] = value, tb, tc
                    row.append(mesh.vert(tuple(p), tuple(normal)))
                g.append(row)
            for i in range(len(ticks[b]) - 1):
                for j in range(len(ticks[c]) - 1):
                    q = (g[i][j], g[i + 1][j], g[i + 1][j + 1], g[i][j + 1])
                    mesh.quad(*(q if side > 0 else q[::-1]))


# -------------------------------------------------------------------- models

# Glyphs on a 46 x 60 grid, drawn from straight strokes 13 units wide.
GLYPH_WIDTH = 46.0
GLYPHS = {
    "V": ([(16.5, 0), (29.5, 0), (46, 60), (33, 60), (23, 16), (13, 60), (0, 60)], []),
    "X": ([(0, 0), (13, 0), (23, 20), (33, 0), (46, 0), (30, 30), (46, 60), (33, 60),
           (23, 40), (13, 60), (0, 60), (16, 30)], []),
    # The inner edges of the A continue the inner edges of its legs (slope
    # 16/60), so both legs keep one stroke width up to the apex.
    "A": ([(0, 0), (13, 0), (16.2, 12), (29.8, 12), (33, 0), (46, 0), (30, 60), (16, 60)],
          [[(13 + 22 * 16 / 60, 22), (23, 37.5), (33 - 22 * 16 / 60, 22)]]),
}


def lettering():
    """V X A side by side, 140 units wide, 24 deep, bevelled front and back."""
    gap, width, depth, bevel = 5.0, 140.0, 24.0, 1.8
    scale = width / (3 * GLYPH_WIDTH + 2 * gap)
    mesh = Mesh("VXA")
    for i, ch in enumerate("VXA"):
        outer, holes = GLYPHS[ch]
        x0 = i * (GLYPH_WIDTH + gap)

        def place(loop):
            return [((x0 + x) * scale, y * scale) for x, y in loop]
        prism(mesh, place(outer), [place(h) for h in holes], -depth / 2, depth / 2,
              n=7, rows=6, bevel=bevel, what="glyph " + ch)
    return mesh


def graphics_board():
    """A dual-slot graphics board seen from its cooler side (+z): circuit
    board in the x-y plane, shroud with a fan recess, fan, bracket at -x."""
    mesh = Mesh("HD6970")
    pcb_lo, pcb_hi = -1.2, 1.2

    # Circuit board with the edge connector tab and its key notch.
    outline = [(-69, -26), (-30, -26), (-30, -31), (5, -31), (5, -28), (7, -28), (7, -31),
               (35, -31), (35, -26), (68, -26), (68, 30), (-69, 30)]
    prism(mesh, refine_by_length(outline, 10.0), [], pcb_lo, pcb_hi, n=2, rows=1,
          what="circuit board")

    # Shroud: bevelled box with a round recess for the fan.
    top, bevel = 17.2, 2.0
    fan = (-26.0, 0.0)
    fan_r, floor = 21.0, 5.2
    shroud = counter_clockwise([(-60, -25), (62, -25), (66, -21), (66, 21), (62, 25),
                                (-60, 25), (-64, 21), (-64, -21)])
    shroud_top = inset_loop(shroud, bevel, "shroud")
    hole = clockwise(circle(fan[0], fan[1], fan_r, 48))
    # Long sides are cut into pieces so the top gets inner points to light;
    # outline and inset are cut alike so the chamfer joins both.
    chamfer_outer, chamfer_inner = [], []
    for i in range(len(shroud)):
        j = (i + 1) % len(shroud)
        pieces = max(1, math.ceil(math.dist(shroud_top[i], shroud_top[j]) / 6.0 - 1e-9))
        chamfer_outer.extend(edge_point(shroud[i], shroud[j], k, pieces) for k in range(pieces))
        chamfer_inner.extend(edge_point(shroud_top[i], shroud_top[j], k, pieces) for k in range(pieces))
    emit_cap(mesh, Region(chamfer_inner, [hole], "shroud top"), top, True, 2)
    chamfer(mesh, chamfer_outer, chamfer_inner, top - bevel, top, 2)
    flat_wall(mesh, chamfer_outer, pcb_hi, top - bevel, 2, 4)
    emit_cap(mesh, Region(chamfer_outer, [], "shroud bottom"), pcb_hi, False, 2)
    round_wall(mesh, hole, fan, floor, top, 2, 4)
    disc(mesh, fan, refine_loop(counter_clockwise(hole), 2), floor, True, 4)

    # Fan: hub and seven pitched blades standing on the recess floor.
    cylinder(mesh, fan, 7.0, floor, 13.5, 40, 3, 3, phase=0.04)
    blade = Mesh("blade")
    blade_outline = [(5.5, -2.6), (11, -4.0), (16, -4.9), (18.6, -3.9), (19.6, -1.5),
                     (19.3, 1.6), (17.6, 3.7), (13, 4.6), (8.5, 3.6), (5.5, 2.6)]
    prism(blade, blade_outline, [], -0.6, 0.6, n=2, rows=1, what="fan blade")
    for i in range(7):
        rot = mat_mul(rot_z(90 + i * 360 / 7), rot_x(32))
        mesh.merge(blade, rot, (fan[0], fan[1], floor + 5.0))

    # Cooling ridges on the shroud beside the fan.
    for i in range(9):
        x = 4 + i * 6.5
        box(mesh, (x, -16, top), (x + 2.4, 16, top + 1.8), 4.0)

    # Power connectors at the top edge, behind the shroud.
    for x in (38, 51):
        box(mesh, (x, 25.6, pcb_hi), (x + 10, 29.6, 8.4), 2.5)

    # Bracket: a plate across the -x end with three vent slots, and its
    # screw lip bent outwards at the top.
    plate = Mesh("bracket")
    slots = [rounded_rect(y, 3, y + 9, 14, 2.0, 3) for y in (-24, -11.5, 1)]
    prism(plate, [(-31, -4), (31, -4), (31, 19), (-31, 19)], slots, -0.6, 0.6, n=2, rows=1,
          what="bracket")
    # local (x, y, z) -> world (z, x, y): the plate stands in the y-z plane
    mesh.merge(plate, ((0, 0, 1), (1, 0, 0), (0, 1, 0)), (-69.8, 0.0, 0.0))
    box(mesh, (-76, 31, -4), (-70.4, 32.2, 19), 3.0)
    return mesh


# ------------------------------------------------------------------- finish

def finish(mesh):
    """Centres the model and works out its deferred texture coordinates."""
    lo = [min(p[a] for p in mesh.pos) for a in range(3)]
    hi = [max(p[a] for p in mesh.pos) for a in range(3)]
    centre = [(lo[a] + hi[a]) / 2 for a in range(3)]
    mesh.pos = [(p[0] - centre[0], p[1] - centre[1], p[2] - centre[2]) for p in mesh.pos]
    lo = [min(p[a] for p in mesh.pos) for a in range(3)]
    size = max(max(p[a] for p in mesh.pos) - lo[a] for a in range(3))
    # One scale for every axis keeps the fur dots round wherever they land.
    for i, (p, n, uv) in enumerate(zip(mesh.pos, mesh.nrm, mesh.uv)):
        if uv is None:
            ax = max(range(3), key=lambda a: (abs(n[a]), -a))
            a, b = {0: (2, 1), 1: (0, 2), 2: (0, 1)}[ax]
            uv = ((p[a] - lo[a]) / size, (p[b] - lo[b]) / size)
        elif uv[0] == "wrap":
            uv = (uv[1], (p[2] - lo[2]) / size)
        mesh.uv[i] = uv


def self_check(mesh):
    """Proves the model is what the library promises; returns its stats."""
    nv = len(mesh.pos)
    for i, (p, n, uv) in enumerate(zip(mesh.pos, mesh.nrm, mesh.uv)):
        if not all(math.isfinite(x) for x in p + n + uv):
            raise MeshError("%s: vertex %d is not finite" % (mesh.name, i))
        if abs(math.sqrt(v_dot(n, n)) - 1.0) > 1e-6:
            raise MeshError("%s: normal %d is not unit length" % (mesh.name, i))
        if not all(-1e-9 <= x <= 1.0 + 1e-9 for x in uv):
            raise MeshError("%s: texture coordinate %d out of range" % (mesh.name, i))
    directed = {}
    volume = 0.0
    min_area = float("inf")
    for t in mesh.tris:
        if not all(0 <= i < nv for i in t) or len(set(t)) != 3:
            raise MeshError("%s: bad triangle %r" % (mesh.name, t))
        p0, p1, p2 = (mesh.pos[i] for i in t)
        c = v_cross(v_sub(p1, p0), v_sub(p2, p0))
        area = math.sqrt(v_dot(c, c)) / 2
        min_area = min(min_area, area)
        if area < 1e-4:
            raise MeshError("%s: degenerate triangle %r" % (mesh.name, t))
        fn = v_unit(c)
        for i in t:
            if v_dot(fn, mesh.nrm[i]) < 0.7:
                raise MeshError("%s: triangle %r winds against its normals" % (mesh.name, t))
        volume += v_dot(p0, v_cross(p1, p2)) / 6
        for k in range(3):
            e = (mesh.pos[t[k]], mesh.pos[t[(k + 1) % 3]])
            directed[e] = directed.get(e, 0) + 1
    shared_more = 0
    for (a, b), cnt in directed.items():
        if directed.get((b, a), 0) != cnt:
            raise MeshError("%s: surface open along %r - %r" % (mesh.name, a, b))
        shared_more += cnt > 1
    if volume <= 0:
        raise MeshError("%s: solid is inside out" % mesh.name)
    lo = [min(p[a] for p in mesh.pos) for a in range(3)]
    hi = [max(p[a] for p in mesh.pos) for a in range(3)]
    return {"vertices": nv, "faces": len(mesh.tris), "lo": lo, "hi": hi,
            "volume": volume, "min_area": min_area, "nonmanifold_edges": shared_more}


def pack(meshes):
    header = struct.pack("<4sIII", MAGIC, VERSION, len(meshes), 0)
    table_end = len(header) + 32 * len(meshes)
    offset = -(-table_end // BLOB_ALIGN) * BLOB_ALIGN
    entries, blobs = [], []
    for mesh in meshes:
        name = mesh.name.encode("ascii")
        if len(name) >= NAME_BYTES:
            raise MeshError("mesh name %r too long" % mesh.name)
        flat = [x for p, n, uv in zip(mesh.pos, mesh.nrm, mesh.uv) for x in p + n + uv]
        idx = [i for t in mesh.tris for i in t]
        blob = struct.pack("<%df" % len(flat), *flat) + struct.pack("<%dI" % len(idx), *idx)
        entries.append(struct.pack("<16sIIII", name, len(mesh.pos), len(mesh.tris), offset, len(blob)))
        pad = -len(blob) % BLOB_ALIGN
        blobs.append(blob + b"\0" * pad)
        offset += len(blob) + pad
    head = header + b"".join(entries)
    return head + b"\0" * (-len(head) % BLOB_ALIGN) + b"".join(blobs)


def build():
    meshes = [lettering(), graphics_board()]
    stats = []
    for mesh in meshes:
        finish(mesh)
        stats.append(self_check(mesh))
    return meshes, stats


def main(argv):
    ap = argparse.ArgumentParser(description="Generates the adata mesh file.")
    ap.add_argument("--out", help="binary file to write")
    ap.add_argument("--stats", action="store_true", help="print vertex/face counts and extents")
    args = ap.parse_args(argv)
    if not args.out and not args.stats:
        ap.error("nothing to do: give --out FILE and/or --stats")
    try:
        meshes, stats = build()
    except MeshError as e:
        print("meshgen: error: %s" % e, file=sys.stderr)
        return 1
    if args.stats:
        for mesh, s in zip(meshes, stats):
            ext = [h - l for h, l in zip(s["hi"], s["lo"])]
            print("%-7s %6d vertices %6d triangles  extent %.1f x %.1f x %.1f  "
                  "volume %.0f  smallest triangle %.3f  non-manifold edges %d"
                  % (mesh.name, s["vertices"], s["faces"], *ext, s["volume"],
                     s["min_area"], s["nonmanifold_edges"]))
    if args.out:
        data = pack(meshes)
        tmp = args.out + ".tmp"
        with open(tmp, "wb") as f:
            f.write(data)
        os.replace(tmp, args.out)  # never leave a half-written file behind
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
