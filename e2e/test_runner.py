"""Test runs as a user meets them: a headless benchmark, a stability test
stopped by a signal, a windowed run under a virtual X server with keys sent
to it; checked through the event log, the scores file and screenshots."""
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

from ardtest import E2ETest, RunFailed, bright_yellow, count_pixels, read_png, start_xvfb, whitish

# Small views and no logos: these tests are about the run, not the scene.
# The animation is held at one moment: at 320x180 the software renderer's
# threaded rasteriser spends minutes on the frame near 8.3 s of animation
# (with rasterisation on the drawing thread, LP_NUM_THREADS=0, the same run
# ends normally), and these tests are about the run, not that renderer.
RUN = ["/display_gui=0", "/test3d=2003", "/width=320", "/height=180", "/render_vxa_logo=0", "/render_a_logo=0",
       "/animation_time=3.0"]


class HeadlessRuns(E2ETest):
    def test_time_limited_benchmark(self):
        inst = self.install()
        shot = os.path.join(inst.work_dir, "shot.png")
        r = inst.run(*RUN, "/run_mode=1", "/max_time=1500", "/log_score", "/headless", "/screenshot=shot.png",
                     timeout=300)
        self.assertEqual(r.returncode, 0, r.stderr)
        msgs = inst.messages()
        tail = msgs[msgs.index("OpenGL 2 (4.5) context init ok.") if "OpenGL 2 (4.5) context init ok." in msgs
                    else -1:]
        self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
        order = [m for m in msgs if m in ("Main render thread - benchmark finished - exit ok.",
                                         "Render thread killed ok.", "3D window killed ok.",
                                         "Exit from VXA Ardentium.")]
        self.assertEqual(order, ["Main render thread - benchmark finished - exit ok.", "Render thread killed ok.",
                                 "3D window killed ok.", "Exit from VXA Ardentium."])
        self.assertTrue(any(re.match(r"^OpenGL 2 \(\d+\.\d+\) context init ok\.$", m) for m in msgs), tail)
        self.assertTrue(any(m.startswith("OpenGL renderer: ") for m in msgs))

        # The scores file sits in the program folder, header first.
        with open(inst.path("Ardentium_Scores.csv"), "rb") as f:
            lines = f.read().split(b"\n")
        self.assertTrue(lines[0].startswith(b"Test name,Renderer,Driver,"))
        self.assertIn(b"GPU temp start(\xb0C)", lines[0])
        row = lines[1].decode("latin-1")
        self.assertTrue(row.startswith("Furry VXA GL2,"), row)
        fields = row.split(",")
        score, max_time = int(fields[-7]), int(fields[-8])
        self.assertEqual(max_time, 1500)
        self.assertGreater(score, 0)
        self.assertEqual(fields[-9], "YES")  # time based
        avg, mn, mx = int(fields[-3]), int(fields[-2]), int(fields[-1])
        self.assertLessEqual(mn, avg)
        self.assertLessEqual(avg, mx)

        # The last frame: the heading in yellow, the FPS lines in white, the
        # progress figure near the top middle.
        w, h, rows = read_png(shot)
        self.assertEqual((w, h), (320, 180))
        self.assertGreater(count_pixels(rows, (0, 25, 320, 45), bright_yellow), 40)
        self.assertGreater(count_pixels(rows, (0, 45, 320, 90), whitish), 80)
        self.assertGreater(count_pixels(rows, (140, 5, 200, 25), whitish), 10)

    def test_frame_limited_benchmark_from_the_settings_file(self):
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings time_based_benchmark="0" max_frames="12"'
                    ' log_score="1" />\n</ardentium>')
        r = inst.run(*RUN, "/run_mode=1", "/headless", timeout=300)
        self.assertEqual(r.returncode, 0, r.stderr)
        with open(inst.path("Ardentium_Scores.csv"), "rb") as f:
            row = f.read().split(b"\n")[1].decode("latin-1").split(",")
        self.assertEqual(row[-9], "NO")
        self.assertEqual(int(row[-7]), 12)  # exactly max_frames measured frames

    def test_stability_test_ends_cleanly_on_a_signal(self):
        inst = self.install()
        p = inst.start(*RUN, "/run_mode=2", "/headless")
        self.addCleanup(lambda: p.poll() is None and p.kill())
        self.wait_message(inst, p, lambda m: "context init ok." in m, "context init")
        time.sleep(0.5)
        p.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, p), 0)
        msgs = inst.messages()
        self.assertIn("Main render thread - demo finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        # A stability test writes no scores row.
        self.assertFalse(os.path.exists(inst.path("Ardentium_Scores.csv")))

    def test_objects_this_build_lacks_end_the_run(self):
        inst = self.install()
        r = inst.run("/display_gui=0", "/test3d=2015", "/headless", timeout=60)
        self.assertEqual(r.returncode, 0)
        msgs = inst.messages()
        self.assertIn("Direct3D 11 is available in the Windows build only.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")


class HangReports(E2ETest):
    """A run that does not end is reported with the threads' stacks, taken
    before it is killed: the only trace an intermittent hang leaves."""

    def test_a_run_past_its_time_reports_where_it_waits(self):
        inst = self.install()
        inst.echo_reports = False
        # A test number that names no test: the program waits in its loop
        # until it is stopped.
        with self.assertRaises(RunFailed) as caught:
            inst.run("/display_gui=0", "/test3d=1", timeout=5)
        report = str(caught.exception)
        self.assertIn("did not end within 5 s", report)
        self.assertIn("is still running", report)
        self.assertIn("VXA Ardentium DX11 is starting up.", report)  # the event log
        self.assertRegex(report, r"(?m)^ *\d+ ardentium +[RSD] cpu=")  # the threads' states
        self.assertRegex(report, r"#\d+ .*RunUiLoop")  # the main thread's stack
        self.assertNotIn("Exit from VXA Ardentium.", inst.messages())  # killed, not ended

    def test_a_program_that_ends_early_is_reported_without_waiting(self):
        inst = self.install()
        inst.echo_reports = False
        p = inst.start("/display_gui=0", "/test3d=2015", "/headless")
        self.addCleanup(lambda: p.poll() is None and p.kill())
        started = time.time()
        with self.assertRaises(RunFailed) as caught:
            self.wait_message(inst, p, lambda m: m == "no such message", "the impossible", timeout=120)
        self.assertLess(time.time() - started, 60)
        report = str(caught.exception)
        self.assertIn("ended before the log said the impossible", report)
        self.assertIn("has ended with exit code 0", report)
        self.assertIn("Exit from VXA Ardentium.", report)
        self.assertNotIn("--- stacks:", report)


def _tool(name):
    return shutil.which(name) is not None


@unittest.skipUnless(_tool("Xvfb") and _tool("xdotool"), "needs Xvfb and xdotool")
class WindowedRuns(E2ETest):
    def setUp(self):
        self.display = start_xvfb(self)

    def xdo(self, *args):
        return subprocess.run(["xdotool", *args], env=dict(os.environ, DISPLAY=self.display),
                              capture_output=True, text=True, timeout=20)

    def test_titles_keys_and_escape(self):
        inst = self.install()
        p = inst.start(*RUN, "/run_mode=2", "/screenshot=shot.png", env={"DISPLAY": self.display})
        self.addCleanup(lambda: p.poll() is None and p.kill())
        wid, name = self.wait_title(self.display, inst, p, r"^Ardentium - Furry VXA GL2 - FPS=\d+$")
        # F1 shows the help lines; Escape ends the run with the help on screen.
        self.xdo("windowactivate", "--sync", wid)
        self.xdo("key", "--window", wid, "F1")
        time.sleep(1.0)
        self.xdo("key", "--window", wid, "Escape")
        self.assertEqual(self.wait_exit(inst, p), 0)
        msgs = inst.messages()
        self.assertIn("Main render thread - demo finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        w, h, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        # The help lines (yellow) fill the area below the F1 line, above the
        # meters' titles.
        self.assertGreater(count_pixels(rows, (0, 85, w, 110), bright_yellow), 40)

    def test_a_missed_title_reports_the_titles_seen(self):
        inst = self.install()
        inst.echo_reports = False
        p = inst.start(*RUN, "/run_mode=2", env={"DISPLAY": self.display})
        self.addCleanup(lambda: p.poll() is None and p.kill())
        self.wait_title(self.display, inst, p, r"^Ardentium - (Running\.\.\.|Furry VXA GL2 - FPS=\d+)$")
        with self.assertRaises(RunFailed) as caught:
            self.wait_title(self.display, inst, p, r"^no such title$", timeout=2)
        report = str(caught.exception)
        self.assertRegex(report, r"window titles seen: .*'Ardentium - (Running\.\.\.|Furry VXA GL2 - FPS=\d+)'")
        self.assertIn("OpenGL 2 (4.5) context init ok.", report)
        self.assertRegex(report, r"#\d+ .*RenderThreadProc")  # the render thread's stack
        self.assertIsNotNone(p.poll())  # ended after the report

    def test_benchmark_locks_keys_and_ends_by_itself(self):
        inst = self.install()
        p = inst.start(*RUN, "/run_mode=1", "/max_time=1000", "/screenshot=shot.png",
                       env={"DISPLAY": self.display})
        self.addCleanup(lambda: p.poll() is None and p.kill())
        wid, _ = self.wait_title(self.display, inst, p, r"^Ardentium - (Running\.\.\.|Furry VXA GL2 - FPS=\d+)$")
        self.xdo("key", "--window", wid, "F1")
        self.assertEqual(self.wait_exit(inst, p), 0)
        self.assertIn("Main render thread - benchmark finished - exit ok.", inst.messages())
        w, h, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        self.assertLess(count_pixels(rows, (0, 85, w, 110), bright_yellow), 20)


if __name__ == "__main__":
    unittest.main()
