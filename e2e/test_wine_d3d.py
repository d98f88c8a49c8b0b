"""Every furry test of the Windows build under Wine, Direct3D back-ends
included: a benchmark of each test identifier, the launcher's start of test
0 through each Direct3D API, and the same frame drawn by every back-end
compared with the OpenGL 2 picture."""
import json
import os
import re
import shutil
import subprocess
import time
import unittest

from ardtest import ClassScope, bright_yellow, count_pixels, csv_fields, read_png, start_xvfb, whitish
from test_wine import WineInstall

# The animation held at one moment, so every back-end draws the same frame.
FROZEN = ["/display_gui=0", "/width=480", "/height=300", "/render_a_logo=0", "/animation_time=2.0"]

BENCHMARKS = [  # (test3d, init line, scores row name)
    ("2003", None, "Furry VXA GL2"),
    ("2102", None, "Furry VXA GL3"),
    ("2006", "Direct3D 9 context init ok.", "Furry VXA D3D9"),
    ("2010", "Direct3D 10 context init ok.", "Furry VXA D3D10"),
    ("2015", "Direct3D 11 context init ok.", "Furry VXA D3D11"),
]


def region_difference(a, b, box):
    """Mean absolute difference per channel (0-255) over box, and the share
    of pixels whose largest channel difference is over 48."""
    x0, y0, x1, y1 = box
    total, far, count = 0, 0, 0
    for y in range(y0, y1):
        ra, rb = a[y], b[y]
        for x in range(x0, x1):
            pa, pb = ra[x], rb[x]
            d = [abs(pa[i] - pb[i]) for i in range(3)]
            total += sum(d)
            far += max(d) > 48
            count += 1
    return total / (3.0 * count), far / float(count)


def reddish(r, g, b):
    # The fur under its red light; nothing else in the middle of the view is.
    return r > 50 and r > g + 25 and r > b + 10


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class Direct3DUnderWine(unittest.TestCase):
    # One display for the whole class: Wine restarts when the display changes.
    @classmethod
    def setUpClass(cls):
        cls.display = start_xvfb(ClassScope(cls))

    def install(self):
        inst = WineInstall()
        self.addCleanup(shutil.rmtree, inst.root, True)
        return inst

    def _scores(self, inst):
        with open(os.path.join(inst.program_dir, "Ardentium_Scores.csv"), "rb") as f:
            return [r for r in f.read().split(b"\r\n") if r]

    def test_every_furry_test_benchmarks_and_draws_the_opengl_2_picture(self):
        shots = {}
        for test3d, init_line, row_name in BENCHMARKS:
            with self.subTest(test3d=test3d):
                inst = self.install()
                res = inst.run(*FROZEN, "/test3d=" + test3d, "/run_mode=1", "/max_time=3000", "/log_score",
                               "/screenshot=shot.png", display=self.display, timeout=240)
                msgs = inst.messages()
                self.assertEqual(res.returncode, 0, "\n".join(msgs[-15:]) + res.stderr[-2000:])
                if init_line:
                    self.assertIn(init_line, msgs)
                    if test3d == "2006":
                        self.assertTrue(any(m.startswith("Direct3D 9 - Adapter 0 - Description: ") for m in msgs))
                        self.assertTrue(any(m.startswith("Direct3D 9 - Vertex shader version: ") for m in msgs))
                self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
                self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
                rows = self._scores(inst)
                self.assertEqual(len(rows), 2, rows)
                fields = csv_fields(rows[1])
                self.assertEqual(fields[0], row_name)
                # Frames counted: a loaded machine under Wine draws a frame in
                # a few hundred milliseconds, so three seconds always hold some.
                self.assertGreater(int(fields[-7]), 0)
                w, h, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
                # The text block (title line in yellow, lines below in white).
                self.assertGreater(count_pixels(pixels, (0, 25, w, 45), bright_yellow), 40)
                self.assertGreater(count_pixels(pixels, (0, 45, w, 90), whitish), 80)
                # The furry object, red-lit, in the middle of the view.
                self.assertGreater(count_pixels(pixels, (w // 4, h // 4, w * 3 // 4, h * 3 // 4), reddish), 800)
                shots[test3d] = (w, h, pixels)

        gl2 = shots.get("2003")
        self.assertIsNotNone(gl2)
        w, h, reference = gl2
        # Away from the text block, the meters and the API logo: the scene.
        box = (w * 35 // 100, h * 32 // 100, w * 95 // 100, h * 68 // 100)
        for test3d in ("2102", "2006", "2010", "2015"):
            if test3d not in shots:
                continue
            with self.subTest(compare=test3d):
                sw, sh, pixels = shots[test3d]
                self.assertEqual((sw, sh), (w, h))
                mean, far = region_difference(reference, pixels, box)
                self.assertLess(mean, 6.0, "mean difference %.2f, %.1f%% far off" % (mean, far * 100))
                self.assertLess(far, 0.03, "mean difference %.2f, %.1f%% far off" % (mean, far * 100))

    def test_each_direct3d_api_runs_a_stability_test_until_escape(self):
        for test, line in (("2006", "Direct3D 9 context init ok."), ("2010", "Direct3D 10 context init ok."),
                           ("2015", "Direct3D 11 context init ok.")):
            with self.subTest(test3d=test):
                inst = self.install()
                env = dict(os.environ, DISPLAY=self.display)
                p = subprocess.Popen([os.path.join(os.path.dirname(__file__), "..", "tools", "wine-run.sh"),
                                      os.path.join(inst.program_dir, "ardentium.exe"), "/display_gui=0", "/test3d=" + test,
                                      "/run_mode=2", "/width=320", "/height=200",
                                      "/screenshot=shot.png"],
                                     cwd=inst.work_dir, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
                self.addCleanup(lambda: p.poll() is None and p.kill())
                deadline = time.time() + 120
                msgs = []
                while time.time() < deadline and line not in msgs:
                    time.sleep(0.5)
                    try:
                        msgs = inst.messages()
                    except (FileNotFoundError, IndexError):
                        pass
                    if p.poll() is not None:
                        break
                self.assertIn(line, msgs)
                time.sleep(3)  # a few frames
                # Escape on the window ends a stability test.
                win = subprocess.run(["xdotool", "search", "--name", "^Ardentium"], env=env, capture_output=True,
                                     text=True, timeout=20).stdout.split()
                self.assertTrue(win, "no window")
                for wid in win:
                    subprocess.run(["xdotool", "key", "--window", wid, "Escape"], env=env, timeout=20)
                self.assertEqual(p.wait(timeout=120), 0)
                msgs = inst.messages()
                self.assertIn("Main render thread - demo finished - exit ok.", msgs)
                self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
                w, h, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
                self.assertGreater(count_pixels(pixels, (0, 0, w, h), reddish), 300)

    def test_each_direct3d_api_catches_an_injected_check_fault(self):
        # A clean run of each API ends with exit code 0 in the benchmark
        # test above, so its checks found no error; here one read-back is
        # corrupted on purpose and each API must report it.
        # The runs also choose GPU 1, the one Wine lists, through each API's
        # own adapter list. Direct3D 11 runs the compute check with each
        # picture check, and it finds the card computing right.
        for test3d, api, chosen in (("2006", "D3D9", r"^Direct3D 9: drawing on GPU 1 \(.*\) through adapter 0"),
                                    ("2010", "D3D10", r"^Direct3D 10: drawing on GPU 1 \(.*\) through DXGI adapter 0"),
                                    ("2015", "D3D11", r"^Direct3D 11: drawing on GPU 1 \(.*\) through DXGI adapter 0")):
            with self.subTest(test3d=test3d):
                inst = self.install()
                res = inst.run(*FROZEN, "/test3d=" + test3d, "/run_mode=1", "/max_time=1000", "/verify_every=2",
                               "/verify_fault=1", "/gpu=1", "/results_json=result.json", display=self.display,
                               timeout=240)
                msgs = inst.messages()
                self.assertEqual(res.returncode, 6, "\n".join(msgs[-15:]) + res.stderr[-2000:])
                self.assertTrue(any(re.match(chosen, m) for m in msgs), msgs[-25:])
                # The check frame has the view's size (the window's client area).
                self.assertTrue(any(re.match(r"^Verification: reference frame drawn \(\d+x\d+\) at frame 1\.$", m)
                                    for m in msgs), msgs[-20:])
                errors = [m for m in msgs if m.startswith("Verification error at frame ")]
                self.assertEqual(len(errors), 1, msgs[-20:])
                self.assertTrue(errors[0].startswith("Verification error at frame 3: "), errors[0])
                with open(os.path.join(inst.work_dir, "result.json")) as f:
                    result = json.load(f)
                self.assertEqual(result["verification"]["errors"], 1, api)
                self.assertEqual([m["frame"] for m in result["verification"]["mismatches"]], [3])
                computes = api == "D3D11"
                self.assertEqual(result["verification"]["compute_check"], computes, api)
                self.assertEqual(
                    "Verification: compute check of 4096 values against the processor's active." in msgs, computes,
                    msgs[-20:])
                self.assertEqual([m["compute_wrong"] for m in result["verification"]["mismatches"]], [0])


if __name__ == "__main__":
    unittest.main()
