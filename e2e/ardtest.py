"""Helpers for the end-to-end tests: run the real program the way a user does,
from its own program folder, and read what it leaves behind."""
import os
import shutil
import subprocess
import tempfile
import unittest

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

    def log_lines(self):
        with open(os.path.join(self.work_dir, "ardentium_log.txt"), encoding="latin-1") as f:
            return [line.rstrip("\n") for line in f]

    def messages(self):
        """The log's messages without their time-and-number prefix."""
        return [line.split(" >> ", 1)[1] for line in self.log_lines()]

    def cleanup(self):
        shutil.rmtree(self.root, ignore_errors=True)


class E2ETest(unittest.TestCase):
    def install(self, **kw):
        inst = Install(**kw)
        self.addCleanup(inst.cleanup)
        return inst
