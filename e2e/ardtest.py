"""Helpers for the end-to-end tests: run the real program the way a user does,
from its own program folder, and read what it leaves behind."""
import csv
import itertools
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib

BUILD = os.environ.get("ARDENTIUM_BUILD", os.path.join(os.path.dirname(__file__), "..", "build"))
PROGRAM = "ardentium"
LIBRARY = "libadata.so"


class Install:
    """A private copy of the program folder (program, mesh library, data),
    so tests never share a settings file, and a separate working folder the
    program is started from."""

    def __init__(self, with_library=True, program=PROGRAM):
        self.root = tempfile.mkdtemp(prefix="ard-e2e-")
        self.program_dir = os.path.join(self.root, "prog")
        self.work_dir = os.path.join(self.root, "work")
        os.makedirs(self.program_dir)
        os.makedirs(self.work_dir)
        self.program = program
        shutil.copy2(os.path.join(BUILD, program), self.program_dir)
        if with_library:
            shutil.copy2(os.path.join(BUILD, LIBRARY), self.program_dir)
        data = os.path.join(BUILD, "data")
        if os.path.isdir(data):
            shutil.copytree(data, os.path.join(self.program_dir, "data"))
        self._starts = itertools.count(1)
        self.echo_reports = True
        self._outputs = {}

    def path(self, *parts):
        return os.path.join(self.program_dir, *parts)

    def run(self, *args, env=None, timeout=60):
        """Runs the program to its end, like subprocess.run with its output
        captured. A run still going after timeout seconds fails with where
        each of its threads waits, taken before it is killed."""
        e = dict(os.environ)
        e.pop("DISPLAY", None)
        e.pop("WAYLAND_DISPLAY", None)
        if env:
            e.update(env)
        p = subprocess.Popen([os.path.join(self.program_dir, self.program), *args], cwd=self.work_dir,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace", env=e)
        try:
            out, err = p.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            report = describe_run(self, p)
            p.kill()
            out, err = p.communicate()
            report = "the program did not end within %d s: %s\n%s\n--- standard error (end):\n%s" % (
                timeout, " ".join(args), report, _tail(err, 40))
            self.echo(report)
            raise RunFailed(report)
        return subprocess.CompletedProcess(p.args, p.returncode, out, err)

    def start(self, *args, env=None):
        """Starts the program without waiting for it (for runs that are
        stopped by a signal or by keys). Its output goes to files (see
        output()), never to pipes nobody reads while it runs: a full pipe
        would stop the program in its next write."""
        e = dict(os.environ)
        if env is None:
            e.pop("DISPLAY", None)
            e.pop("WAYLAND_DISPLAY", None)
        else:
            e.update(env)
        n = next(self._starts)
        paths = (os.path.join(self.root, "stdout-%d.txt" % n), os.path.join(self.root, "stderr-%d.txt" % n))
        with open(paths[0], "wb") as out, open(paths[1], "wb") as err:
            p = subprocess.Popen([os.path.join(self.program_dir, self.program), *args], cwd=self.work_dir,
                                 stdout=out, stderr=err, env=e)
        self._outputs[p.pid] = paths
        return p

    def echo(self, report):
        """Writes a failed run's report at once as well: a suite stopped by
        its time limit never prints the failures it collected. Tests of the
        reports themselves turn it off (echo_reports)."""
        if self.echo_reports:
            sys.stderr.write("\n=== run report\n%s\n===\n" % report)
            sys.stderr.flush()

    def output(self, proc):
        """What a program begun with start() wrote so far: (stdout, stderr)."""
        texts = []
        for path in self._outputs.get(proc.pid, ()):
            try:
                with open(path, encoding="latin-1") as f:
                    texts.append(f.read())
            except OSError:
                texts.append("")
        return tuple(texts) if texts else ("", "")

    def log_lines(self):
        with open(os.path.join(self.work_dir, "ardentium_log.txt"), encoding="latin-1") as f:
            return [line.rstrip("\n") for line in f]

    def messages(self):
        """The log's messages without their time-and-number prefix."""
        return [line.split(" >> ", 1)[1] for line in self.log_lines()]

    def messages_so_far(self):
        """The messages of a run still going: none before the log exists,
        and a line still being written is left out."""
        try:
            return [line.split(" >> ", 1)[1] for line in self.log_lines() if " >> " in line]
        except FileNotFoundError:
            return []

    def cleanup(self):
        shutil.rmtree(self.root, ignore_errors=True)


class ClassScope:
    """Lets the per-test helpers below hold something for a whole test
    class (from setUpClass): cleanups become class cleanups."""

    def __init__(self, cls):
        self.cls = cls

    def assertTrue(self, value, msg=None):
        if not value:
            raise AssertionError(msg)

    def addCleanup(self, function, *args):
        self.cls.addClassCleanup(function, *args)


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


class RunFailed(AssertionError):
    """A run that did not do what the test waited for, with what is known
    about it."""


def _tail(text, count):
    lines = (text or "").splitlines()
    return "\n".join(lines[-count:]) if lines else "(nothing)"


def _thread_samples(pid):
    """{thread id: (name, scheduler state, processor seconds, kernel wait)}."""
    task = "/proc/%d/task" % pid
    try:
        tids = os.listdir(task)
    except OSError:
        return {}
    tick = os.sysconf("SC_CLK_TCK")
    samples = {}
    for tid in tids:
        try:
            with open(os.path.join(task, tid, "stat")) as f:
                stat = f.read()
            with open(os.path.join(task, tid, "wchan")) as f:
                wchan = f.read().strip() or "-"
        except OSError:
            continue  # the thread ended meanwhile
        fields = stat[stat.rindex(")") + 2:].split()
        cpu = (int(fields[11]) + int(fields[12])) / tick
        samples[int(tid)] = (stat[stat.index("(") + 1:stat.rindex(")")], fields[0], cpu, wchan)
    return samples


def thread_states(pid, interval=3.0):
    """One line per thread of a live process: id, name, scheduler state, the
    processor time it has used and how much of it in the last interval
    seconds. Threads that wait and gain nothing are blocked; a busy one is
    slow, not hung."""
    before = _thread_samples(pid)
    time.sleep(interval)
    after = _thread_samples(pid)
    if not after:
        return "(no threads to read)"
    lines = []
    for tid in sorted(after):
        name, state, cpu, wchan = after[tid]
        gained = cpu - before[tid][2] if tid in before else cpu
        lines.append("%7d %-16s %s cpu=%7.2fs (+%.2fs in %.0fs) wchan=%s" % (tid, name, state, cpu, gained,
                                                                            interval, wchan))
    return "\n".join(lines)


GDB_TIMEOUT = 180


def thread_backtraces(pid, timeout=GDB_TIMEOUT):
    """The stack of every thread of a live process, read by attaching gdb;
    what went wrong instead when that is not possible."""
    cmd = ["gdb", "-nx", "-batch", "-p", str(pid), "-ex", "set pagination off", "-ex", "thread apply all bt"]
    try:
        r = subprocess.run(cmd, capture_output=True, text=True, errors="replace", timeout=timeout,
                           stdin=subprocess.DEVNULL)
    except FileNotFoundError:
        return "(no gdb to read the threads' stacks with)"
    except subprocess.TimeoutExpired:
        return "(gdb gave no stacks within %d s)" % timeout
    noise = ("[New LWP", "[Thread debugging", "Using host libthread_db", "[Inferior ", "warning: ")
    text = "\n".join(l for l in r.stdout.splitlines() if not l.startswith(noise)).strip()
    if "#0" not in text:
        text = "(gdb read no stacks: exit code %d)\n%s\n%s" % (r.returncode, text, _tail(r.stderr, 20))
    return text


def describe_run(inst, proc, titles=None, log_lines=80):
    """What a failed wait knows about a run: whether the program still runs,
    the titles its window had, its event log and, while it runs, each
    thread's state and stack (so a hang shows where it waits)."""
    parts = []
    code = proc.poll()
    if code is None:
        parts.append("--- the program (pid %d) is still running" % proc.pid)
    else:
        parts.append("--- the program (pid %d) has ended with exit code %d" % (proc.pid, code))
    if titles is not None:
        parts.append("--- window titles seen: %s" % (", ".join(repr(t) for t in titles) or "none"))
    try:
        log = inst.log_lines()
        parts.append("--- event log (%d lines%s):" % (len(log), ", the last %d" % log_lines if len(log) > log_lines
                                                       else ""))
        parts.append("\n".join(log[-log_lines:]) or "(empty)")
    except FileNotFoundError:
        parts.append("--- no event log in %s" % inst.work_dir)
    if code is None:
        parts.append("--- threads (id, name, state, processor time):")
        parts.append(thread_states(proc.pid))
        parts.append("--- stacks:")
        parts.append(thread_backtraces(proc.pid))
    if proc.pid in inst._outputs:
        out, err = inst.output(proc)
        parts.append("--- standard error (end):\n%s" % _tail(err, 40))
    return "\n".join(parts)


class E2ETest(unittest.TestCase):
    # A frame on a software renderer sharing two processors with other
    # tests can take many seconds; waits are generous and a failed wait says
    # what the program was doing.
    WAIT = 90

    def install(self, **kw):
        inst = Install(**kw)
        self.addCleanup(inst.cleanup)
        return inst

    def fail_run(self, inst, proc, what, titles=None):
        """Fails the test with what is known about the run, then ends the
        program if it still runs."""
        report = what + "\n" + describe_run(inst, proc, titles)
        if proc.poll() is None:
            proc.kill()
            proc.wait(timeout=30)
        inst.echo(report)
        raise RunFailed(report)

    def wait_exit(self, inst, proc, timeout=WAIT):
        """The program's exit code, or a failure saying where it hangs."""
        try:
            return proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.fail_run(inst, proc, "the program did not end within %d s" % timeout)

    def wait_message(self, inst, proc, predicate, what, timeout=WAIT):
        """Waits until a message of the event log satisfies predicate, and
        returns the messages; fails early when the program ends first."""
        deadline = time.time() + timeout
        while True:
            msgs = inst.messages_so_far()
            if any(predicate(m) for m in msgs):
                return msgs
            if proc.poll() is not None:
                self.fail_run(inst, proc, "the program ended before the log said %s" % what)
            if time.time() > deadline:
                self.fail_run(inst, proc, "no %s in the log within %d s" % (what, timeout))
            time.sleep(0.2)

    def wait_title(self, display, inst, proc, pattern, timeout=WAIT):
        """Waits for a window on display whose title matches pattern and
        returns (window id, title); fails early when the program ends first."""
        env = dict(os.environ, DISPLAY=display)

        def xdo(*args):
            try:
                return subprocess.run(["xdotool", *args], env=env, capture_output=True, text=True,
                                      timeout=20).stdout
            except subprocess.TimeoutExpired:
                return ""  # a busy X server: asked again on the next round
        seen = []
        deadline = time.time() + timeout
        while True:
            for wid in xdo("search", "--name", "Ardentium").split():
                name = xdo("getwindowname", wid).strip()
                if name and name not in seen:
                    seen.append(name)
                if re.match(pattern, name):
                    return wid, name
            if proc.poll() is not None:
                self.fail_run(inst, proc, "the program ended without a window titled %r" % pattern, seen)
            if time.time() > deadline:
                self.fail_run(inst, proc, "no window titled %r within %d s" % (pattern, timeout), seen)
            time.sleep(0.3)


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


def csv_fields(row):
    """The fields of one scores-file row (bytes): driver texts holding
    commas are quoted."""
    return next(csv.reader([row.decode("latin-1")]))


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


def sox_rms_db(wav, *effects):
    """The overall RMS level of a sound file in dB, after sox's effects
    (e.g. "trim", "2.5", "1" for the second after 2.5 s)."""
    out = subprocess.run(["sox", wav, "-n", *effects, "stats"], capture_output=True, text=True, check=True).stderr
    for line in out.splitlines():
        if line.startswith("RMS lev dB"):
            return float(line.split()[3])
    raise AssertionError("no RMS level in sox's stats:\n" + out)


def soxi(wav, flag):
    """One fact of a sound file from soxi: -c channels, -r rate, -D seconds."""
    return subprocess.run(["soxi", flag, wav], capture_output=True, text=True, check=True).stdout.strip()


def read_launcher_state(path):
    """The launcher's widget-state dump (/launcher_state=): key=value lines."""
    state = {}
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                key, _, value = line.rstrip("\n").partition("=")
                state[key] = value
    except FileNotFoundError:
        pass
    return state


class LauncherDriver:
    """Drives a running launcher the way a user does, with xdotool on a
    virtual display, finding widgets in its state dump. A test sets
    state_path, display and shot_folder (where the launcher writes its own
    screenshots) and says, through launcher_failed, how it reports a
    launcher that died or never showed what it waited for."""
    state_path = None
    display = None
    shot_folder = None
    settle = 0.3          # seconds a click waits for a new window to settle
    state_wait = 180

    def launcher_failed(self, proc, message):
        self.fail(message)

    def program_path(self, path):
        """A path as the launcher's own file calls must name it."""
        return path

    def wait_state(self, proc, predicate, what, timeout=None):
        timeout = timeout or self.state_wait
        deadline = time.time() + timeout
        while True:
            state = read_launcher_state(self.state_path)
            if state and predicate(state):
                return state
            shown = {k: v for k, v in state.items() if not k.startswith("widget.")}
            if proc.poll() is not None:
                self.launcher_failed(proc, "the launcher ended (%s) before it showed %s; state: %r" %
                                     (proc.returncode, what, shown))
            if time.time() > deadline:
                self.launcher_failed(proc, "the launcher did not show %s within %d s; state: %r" %
                                     (what, timeout, shown))
            time.sleep(0.2)

    def xdo(self, *args):
        """Runs xdotool on the test's display; returns what it printed."""
        return subprocess.run(["xdotool", *args], env=dict(os.environ, DISPLAY=self.display), check=True,
                              timeout=30, capture_output=True, text=True).stdout

    def click(self, proc, widget, field=False):
        """Clicks the middle of a widget; a field's rectangle also holds its
        label and step buttons, so a field is clicked near its left end."""
        # A window that has just appeared may still be settling: the same
        # place twice in a row.
        key = "widget." + widget
        seen = None
        while True:
            state = self.wait_state(proc, lambda s: key in s, "the widget " + widget)
            if state[key] == seen:
                break
            seen = state[key]
            time.sleep(self.settle)
        x, y, w, h = (int(v) for v in seen.split(","))
        ox, oy = (int(v) for v in state["client_origin"].split(","))
        self.xdo("mousemove", str(ox + x + (8 if field else w // 2)), str(oy + y + h // 2))
        # A press and release apart, as a hand does: the GUI sees both frames.
        time.sleep(0.1)
        self.xdo("mousedown", "1")
        time.sleep(0.2)
        self.xdo("mouseup", "1")

    def type_into(self, proc, widget, text, enter=True):
        # Keys go where the pointer is (no window manager gives focus).
        self.click(proc, widget, field=True)
        time.sleep(0.3)
        self.xdo("key", "ctrl+a")
        self.xdo("type", "--delay", "60", text)
        if enter:
            self.xdo("key", "Return")

    def screenshot(self, proc, name):
        """The launcher's own picture of what it shows; kept in
        ARDENTIUM_SHOTS when that names a folder."""
        target = os.path.join(self.shot_folder, name + ".png")
        with open(self.state_path + ".shot.tmp", "w") as f:
            f.write(self.program_path(target))
        os.replace(self.state_path + ".shot.tmp", self.state_path + ".shot")
        deadline = time.time() + 60
        while os.path.exists(self.state_path + ".shot") and time.time() < deadline:
            time.sleep(0.2)
        self.assertTrue(os.path.exists(target), "no screenshot " + name)
        w, h, rows = read_png(target)
        # Something is drawn: more than the background colour.
        self.assertGreater(len({px for row in rows[::8] for px in row[::8]}), 3, name)
        shots = os.environ.get("ARDENTIUM_SHOTS", "")
        if shots:
            os.makedirs(shots, exist_ok=True)
            shutil.copy2(target, os.path.join(shots, name + ".png"))
        return w, h
