"""A GL test application in the Windows build under Wine: the tessellated
sphere through a WGL OpenGL 4 core context in a window on a virtual X server,
with its parameter panel, stopped with Escape like a user stops it."""
import os
import shutil
import subprocess
import time
import unittest

from ardtest import count_pixels, read_png, start_xvfb
from test_glapps import keep
from test_wine import WINE_RUN, WineInstall


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class WineGlApp(unittest.TestCase):
    WAIT = 180

    def xdo(self, *args):
        return subprocess.run(["xdotool", *args], env=dict(os.environ, DISPLAY=self.display), capture_output=True,
                              text=True, timeout=30).stdout

    def test_tessellated_sphere_through_wgl(self):
        self.display = start_xvfb(self)
        inst = WineInstall()
        self.addCleanup(shutil.rmtree, inst.root, True)
        env = dict(os.environ, DISPLAY=self.display)
        proc = subprocess.Popen([WINE_RUN, os.path.join(inst.program_dir, "ardentium.exe"), "/display_gui=0",
                                 "/run_mode=0", "/test3d=2201", "/width=480", "/height=320", "/glapp_load=4",
                                 "/glapp_panel", "/render_general_indicators=0", "/screenshot=shot.png"],
                                cwd=inst.work_dir, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        # The title counts frames once a second.
        deadline = time.time() + self.WAIT
        wid = None
        while wid is None:
            for w in self.xdo("search", "--name", "GF OC Test").split():
                if "FPS=" in self.xdo("getwindowname", w):
                    wid = w
            self.assertIsNone(proc.poll(), "the program ended before its title showed frames")
            self.assertLess(time.time(), deadline, "no frames counted in the title")
            time.sleep(0.5)
        # Keys go to the window under the pointer (no window manager).
        geometry = dict(line.strip().split(": ", 1) for line in self.xdo("getwindowgeometry", wid).splitlines()[1:])
        x, y = (int(v) for v in geometry["Position"].split()[0].split(","))
        self.xdo("mousemove", str(x + 60), str(y + 120))
        time.sleep(0.3)
        self.xdo("key", "Escape")
        try:
            proc.wait(timeout=self.WAIT)
        except subprocess.TimeoutExpired:
            self.fail("Escape did not end the run")
        msgs = inst.messages()
        self.assertIn("Test application selected: GF OC Test (GL4) (2201).", msgs)
        self.assertTrue(any(m.startswith("OpenGL 4 (") and m.endswith(") context with core profile init ok.") for m in msgs), msgs)
        self.assertIn("GF OC Test (GL4) init ok (tessellation level 4, 20 sphere patches).", msgs)
        self.assertIn("Main render thread - demo finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        keep(os.path.join(inst.work_dir, "shot.png"), "wine-glapp-2201-panel.png")
        width, height, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        # The sphere left of the panel, the panel's title bar at the top right.
        red = count_pixels(rows, (0, 0, width, height), lambda r, g, b: r > 2 * g and r > 60)
        self.assertGreater(red, 1500)
        bar = count_pixels(rows, (max(0, width - 240), 20, width, 60), lambda r, g, b: b > r + 40 and b > 90)
        self.assertGreater(bar, 300)


if __name__ == "__main__":
    unittest.main()
