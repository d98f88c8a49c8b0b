"""Test runs as a user meets them: a headless benchmark, a stability test
stopped by a signal, a windowed run under a virtual X server with keys sent
to it; checked through the event log, the scores file and screenshots."""
import csv
import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

from ardtest import E2ETest, RunFailed, bright_yellow, count_pixels, csv_fields, read_png, start_xvfb, whitish

# Small views and no logos: these tests are about the run, not the scene.
# The animation is held at one moment: at 320x180 the software renderer's
# threaded rasteriser spends minutes on the frame near 8.3 s of animation
# (with rasterisation on the drawing thread, LP_NUM_THREADS=0, the same run
# ends normally), and these tests are about the run, not that renderer.
RUN = ["/display_gui=0", "/test3d=2003", "/width=320", "/height=180", "/render_vxa_logo=0", "/render_a_logo=0",
       "/animation_time=3.0"]


class HeadlessRuns(E2ETest):
    def assertEndLines(self, msgs, thread_end):
        """The render thread's last line, the kill sequence and the exit line.

        The kill sequence waits at most a second for the render thread, so on
        a slow machine its line may follow "Render thread killed ok."; the
        program still waits for it before "Exit from VXA Ardentium.".
        """
        kill = ["Render thread killed ok.", "3D window killed ok.", "Exit from VXA Ardentium."]
        self.assertEqual([m for m in msgs if m in kill], kill)
        self.assertEqual(msgs.count(thread_end), 1, msgs[-8:])
        self.assertLess(msgs.index(thread_end), msgs.index("Exit from VXA Ardentium."))
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")

    def test_time_limited_benchmark(self):
        inst = self.install()
        shot = os.path.join(inst.work_dir, "shot.png")
        r = inst.run(*RUN, "/run_mode=1", "/max_time=2500", "/log_score", "/headless", "/screenshot=shot.png",
                     "/results_json=result.json", timeout=300)
        self.assertEqual(r.returncode, 0, r.stderr)
        msgs = inst.messages()
        tail = msgs[msgs.index("OpenGL 2 (4.5) context init ok.") if "OpenGL 2 (4.5) context init ok." in msgs
                    else -1:]
        self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
        self.assertEndLines(msgs, "Main render thread - benchmark finished - exit ok.")
        self.assertTrue(any(re.match(r"^OpenGL 2 \(\d+\.\d+\) context init ok\.$", m) for m in msgs), tail)
        self.assertTrue(any(m.startswith("OpenGL renderer: ") for m in msgs))

        # The scores file sits in the program folder, header first.
        with open(inst.path("Ardentium_Scores.csv"), "rb") as f:
            lines = f.read().split(b"\n")
        self.assertTrue(lines[0].startswith(b"Test name,Renderer,Driver,"))
        self.assertIn(b"GPU temp start(\xb0C)", lines[0])
        row = lines[1].decode("latin-1")
        self.assertTrue(row.startswith("Furry VXA GL2,"), row)
        fields = next(csv.reader([row]))  # driver texts with commas are quoted
        score, max_time = int(fields[-7]), int(fields[-8])
        self.assertEqual(max_time, 2500)
        self.assertGreater(score, 0)
        self.assertEqual(fields[-9], "YES")  # time based
        avg, mn, mx = int(fields[-3]), int(fields[-2]), int(fields[-1])
        # A machine so loaded that no whole second was sampled keeps the
        # statistics' starting values; the summary and JSON then say n.a.
        sampled = (mn, avg, mx) != (10000, 0, 0)
        if sampled:
            self.assertLessEqual(mn, avg)
            self.assertLessEqual(avg, mx)
        # The row names what the run drew with, as the event log does.
        renderer = [m for m in msgs if m.startswith("OpenGL renderer: ")][0][len("OpenGL renderer: "):]
        version = [m for m in msgs if m.startswith("OpenGL version: ")][0][len("OpenGL version: "):]
        self.assertEqual(fields[1:3], [renderer, version])

        # One summary line on standard output tells the same result.
        self.assertEqual(r.stdout.count("\n"), 1, r.stdout)
        m = re.match(r"^Result: Furry VXA GL2, OpenGL 2, 320x180, (\d+) frames in (\d+\.\d\d) s, "
                     r"FPS min/avg/max (?:(\d+)/(\d+)/(\d+)|n\.a\. \(no whole second measured\)), score (\d+)$",
                     r.stdout.strip())
        self.assertTrue(m, r.stdout)
        self.assertEqual(int(m.group(1)), score)
        self.assertEqual(int(m.group(6)), score)
        self.assertGreaterEqual(float(m.group(2)), 2.5)
        if sampled:
            self.assertEqual([int(m.group(i)) for i in (3, 4, 5)], [mn, avg, mx])
        else:
            self.assertIsNone(m.group(3), r.stdout)
        # Not a terminal: no progress line on standard error.
        self.assertNotIn(" s of ", r.stderr)

        # The JSON results hold the same figures and more.
        with open(os.path.join(inst.work_dir, "result.json"), encoding="utf-8") as f:
            j = json.load(f)
        self.assertEqual((j["test"], j["api"], j["width"], j["height"]), ("Furry VXA GL2", "OpenGL 2", 320, 180))
        self.assertEqual((j["frames"], j["score"], j["ending"]), (score, score, "completed"))
        self.assertEqual((j["renderer"], j["driver"]), (renderer, version))
        self.assertEqual(j["fps"], {"min": mn, "avg": avg, "max": mx} if sampled else None)
        self.assertEqual(j["settings"]["max_time"], "2500")
        self.assertEqual(j["settings"]["test3d"], "2003")
        self.assertEqual(j["version"], "2.6.0")
        self.assertEqual(bool(j["fps_per_second"]), sampled)
        ft = j["frame_time_ms"]
        self.assertTrue(0 < ft["p50"] <= ft["p95"] <= ft["p99"] <= ft["p99_9"], ft)
        self.assertTrue(0 < j["low_fps"]["0_1_percent"] <= j["low_fps"]["1_percent"], j["low_fps"])
        self.assertEqual(len(j["gpus"]), 1)
        self.assertEqual(j["errors"], [])
        self.assertFalse([n for n in os.listdir(inst.work_dir) if n.startswith("result.json.")])  # no temp left

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
            row = csv_fields(f.read().split(b"\n")[1])
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
        self.assertEqual(r.returncode, 2)  # could not start
        self.assertIn("Result: Furry VXA D3D11, Direct3D 11, 1280x720: could not start", r.stdout)
        msgs = inst.messages()
        self.assertIn("Direct3D 11 is available in the Windows build only.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")

    def test_ctrl_c_stops_a_benchmark_promptly_and_a_second_one_at_once(self):
        inst = self.install()
        p = inst.start(*RUN, "/run_mode=1", "/max_time=60000", "/log_score", "/headless", "/results_json=r.json")
        self.addCleanup(lambda: p.poll() is None and p.kill())
        self.wait_message(inst, p, lambda m: "context init ok." in m, "context init")
        time.sleep(1.0)
        p.send_signal(signal.SIGINT)
        stopped = time.time()
        self.assertEqual(self.wait_exit(inst, p), 5)  # a benchmark stopped before its end
        # About one frame plus the kill sequence and shut-down (the monitor
        # thread's stop waits up to two of its one-second periods).
        self.assertLess(time.time() - stopped, 10)
        msgs = inst.messages()
        self.assertEndLines(msgs, "Main render thread - demo finished - exit ok.")
        out, _ = inst.output(p)
        # On a loaded machine the signal may land before a whole second was
        # measured; then the figures are n.a., never zeros.
        self.assertRegex(out, r"^Result: Furry VXA GL2, OpenGL 2, 320x180, \d+ frames in [\d.]+ s, "
                              r"FPS min/avg/max (\d+/\d+/\d+|n\.a\. \(no whole second measured\)), "
                              r"score n\.a\. \(stopped before the end\)\n$")
        with open(os.path.join(inst.work_dir, "r.json"), encoding="utf-8") as f:
            j = json.load(f)
        self.assertEqual((j["ending"], j["score"]), ("stopped before the end", None))
        # The scores row of the interrupted benchmark is still written.
        with open(inst.path("Ardentium_Scores.csv"), "rb") as f:
            self.assertTrue(f.read().split(b"\n")[1].startswith(b"Furry VXA GL2,"))

        # A second SIGINT while the first is being handled ends it at once.
        os.remove(os.path.join(inst.work_dir, "ardentium_log.txt"))  # wait for this run's own lines
        p = inst.start(*RUN, "/run_mode=2", "/headless")
        self.wait_message(inst, p, lambda m: "context init ok." in m, "context init")
        p.send_signal(signal.SIGINT)
        time.sleep(0.1)
        p.send_signal(signal.SIGINT)
        self.assertEqual(self.wait_exit(inst, p), 130)
        self.assertIn("Interrupted again: ending at once.", inst.output(p)[1])

    def test_results_that_cannot_be_written_change_the_exit_code(self):
        inst = self.install()
        # A folder where the scores file should be, and a results path under
        # a file: both writes fail whoever runs the test (root included).
        os.mkdir(inst.path("Ardentium_Scores.csv"))
        r = inst.run(*RUN, "/run_mode=1", "/max_time=500", "/log_score", "/headless",
                     "/results_json=/etc/hostname/r.json", timeout=300)
        self.assertEqual(r.returncode, 3, r.stderr)
        msgs = inst.messages()
        self.assertTrue(any(m.startswith("Unable to write the results file [/etc/hostname/r.json]: ") for m in msgs), msgs)
        self.assertTrue(any(m.startswith("Unable to write the scores file [./Ardentium_Scores.csv]: ") for m in msgs),
                        msgs)
        self.assertIn("score ", r.stdout)  # the summary line still tells the result
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")


class HangReports(E2ETest):
    """A run that does not end is reported with the threads' stacks, taken
    before it is killed: the only trace an intermittent hang leaves."""

    def test_a_run_past_its_time_reports_where_it_waits(self):
        inst = self.install()
        inst.echo_reports = False
        # A stability test runs until it is stopped.
        with self.assertRaises(RunFailed) as caught:
            inst.run("/display_gui=0", "/test3d=2003", "/run_mode=2", "/width=64", "/height=64", timeout=5)
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
        self.assertIn("has ended with exit code 2", report)  # no Direct3D here: could not start
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
        # The render thread's stack, found by its name: where gdb cannot
        # unwind through the driver's generated code, the function names
        # below it are missing.
        self.assertRegex(report, r'Thread \d+ \(Thread 0x[0-9a-f]+ \(LWP \d+\) "render"\):\n#0 ')
        self.assertRegex(report, r"\d+ render +[A-Z] cpu=")  # and its state
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
