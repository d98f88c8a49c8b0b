"""Helpers for the end-to-end tests: run the real program the way a user does,
from its own program folder, and read what it leaves behind."""
import os
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

BUILD = os.environ.get("ARDENTIUM_BUILD", os.path.join(os.path.dirname(__file__), "..", "build"))
PROGRAM = "ardentium"
LIBRARY = "libadata.so"


class Install:
    """A private copy of the program folder (program, mesh library, data),
    so tests never share a settings file, and a separate working folder the
    program is started from."""

    def __init__(self, with_library=True):
        self.root = tempfile.mkdtemp(prefix="ard-e2e-")
        self.program_dir = os.path.join(self.root, "prog")
        self.work_dir = os.path.join(self.root, "work")
        os.makedirs(self.program_dir)
        os.makedirs(self.work_dir)
        shutil.copy2(os.path.join(BUILD, PROGRAM), self.program_dir)
        if with_library:
            shutil.copy2(os.path.join(BUILD, LIBRARY), self.program_dir)
        data = os.path.join(BUILD, "data")
        if os.path.isdir(data):
            shutil.copytree(data, os.path.join(self.program_dir, "data"))

    def path(self, *parts):
        return os.path.join(self.program_dir, *parts)

    def run(self, *args, env=None, timeout=60):
        e = dict(os.environ)
        e.pop("DISPLAY", None)
        e.pop("WAYLAND_DISPLAY", None)
        if env:
            e.update(env)
        return subprocess.run([os.path.join(self.program_dir, PROGRAM), *args], cwd=self.work_dir,
                              capture_output=True, text=True, timeout=timeout, env=e)

    def start(self, *args, env=None):
        """Starts the program without waiting for it (for runs that are
        stopped by a signal or by keys)."""
        e = dict(os.environ)
        if env is None:
            e.pop("DISPLAY", None)
            e.pop("WAYLAND_DISPLAY", None)
        else:
            e.update(env)
        return subprocess.Popen([os.path.join(self.program_dir, PROGRAM), *args], cwd=self.work_dir,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=e)

    def log_lines(self):
        with open(os.path.join(self.work_dir, "ardentium_log.txt"), encoding="latin-1") as f:
            return [line.rstrip("\n") for line in f]

    def messages(self):
        """The log's messages without their time-and-number prefix."""
        return [line.split(" >> ", 1)[1] for line in self.log_lines()]

    def cleanup(self):
        shutil.rmtree(self.root, ignore_errors=True)


def start_xvfb(test):
    """A virtual X server of the test's own ("-displayfd" lets the server pick
    a free number and say when it is ready), stopped when the test ends.
    Returns the display name."""
    r, w = os.pipe()
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(w), "-screen", "0", "1024x768x24", "-nolisten", "tcp"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=(w,))
    os.close(w)
    with os.fdopen(r) as f:
        number = f.readline().strip()
    test.assertTrue(number.isdigit(), "Xvfb did not start")

    def stop():
        xvfb.terminate()
        xvfb.wait(timeout=10)
    test.addCleanup(stop)
    return ":" + number


class E2ETest(unittest.TestCase):
    def install(self, **kw):
        inst = Install(**kw)
        self.addCleanup(inst.cleanup)
        return inst


def read_png(path):
    """Decodes an 8-bit RGB or RGBA, non-interlaced PNG (what the program
    writes) into (width, height, rows of (r, g, b) tuples)."""
    with open(path, "rb") as f:
        data = f.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG file"
    pos, idat, width, height, channels = 8, b"", 0, 0, 4
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, color = struct.unpack(">IIBB", body[:10])
            assert depth == 8 and color in (2, 6), "unexpected PNG format"
            channels = 4 if color == 6 else 3
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, prev = [], bytearray(stride)
    for y in range(height):
        f = raw[y * (stride + 1)]
        line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = prev[i]
            c = prev[i - channels] if i >= channels else 0
            if f == 1:
                line[i] = (line[i] + a) & 255
            elif f == 2:
                line[i] = (line[i] + b) & 255
            elif f == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif f == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append([tuple(line[x * channels:x * channels + 3]) for x in range(width)])
        prev = line
    return width, height, rows


def count_pixels(rows, box, predicate):
    """Counts the pixels in box (x0, y0, x1, y1) for which predicate(r, g, b) holds."""
    x0, y0, x1, y1 = box
    return sum(1 for y in range(y0, y1) for x in range(x0, x1) if predicate(*rows[y][x]))


def yellowish(r, g, b):
    return r > 120 and g > 120 and b < 90


def bright_yellow(r, g, b):
    """The HUD's heading and help yellow, brighter than anything in the scene."""
    return r > 200 and g > 200 and b < 80


def whitish(r, g, b):
    return r > 150 and g > 150 and b > 150
