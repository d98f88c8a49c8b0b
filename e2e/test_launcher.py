"""The launcher and the score dialog, driven the way a user drives them: a
virtual display, mouse clicks and keys through xdotool. Where to click comes
from the launcher's widget-state file (/launcher_state=), which also says what
the launcher shows; screenshots of every tab are kept for a person to look at."""
import http.server
import json
import os
import re
import shutil
import signal
import subprocess
import threading
import time
import unittest

from ardtest import BUILD, E2ETest, LauncherDriver, read_launcher_state, read_png, start_xvfb

SETTINGS = ('<?xml version="1.0"?>\n<ardentium>\n\t<settings width="320" height="240" enable_amark_music="0"'
            ' display_score="1" max_time="60000" launcher_test3d="2003" %s/>\n</ardentium>\n')


read_state = read_launcher_state


class Recorder(http.server.BaseHTTPRequestHandler):
    """A score server on the loopback address: keeps what it is sent and
    answers, after the delay the test sets, with the status it sets."""
    status = 200
    delay = 0.0
    received = []

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        body = self.rfile.read(length).decode("utf-8")
        type(self).received.append((self.path, self.headers.get("Content-Type"), body))
        time.sleep(type(self).delay)
        self.send_response(type(self).status)
        self.send_header("Content-Type", "text/plain")
        self.end_headers()
        self.wfile.write(b"accepted" if type(self).status == 200 else b"database is down")

    def log_message(self, *args):
        pass


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class LauncherTest(E2ETest, LauncherDriver):
    state_wait = E2ETest.WAIT

    def launcher_failed(self, proc, message):
        self.fail_run(self.inst, proc, message)

    def use(self, inst, display):
        """The installation and display the driver works on from here on."""
        self.inst = inst
        self.shot_folder = inst.root
        self.display = display
        self.state_path = os.path.join(inst.root, "launcher-state.txt")

    def launcher(self, inst, display, *args, env=None):
        self.use(inst, display)
        if os.path.exists(self.state_path):
            os.remove(self.state_path)
        proc = inst.start("/launcher_state=" + self.state_path, *args, env=dict(env or {}, DISPLAY=display))
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        self.wait_state(proc, lambda s: s.get("tab") == "tests", "the tests tab")
        self.wid, _ = self.wait_title(display, inst, proc, r"^VXA Ardentium$")
        return proc

    def settings_attributes(self, inst):
        with open(inst.path("startup_options.xml"), encoding="latin-1") as f:
            return dict(re.findall(r'(\w+)="([^"]*)"', f.read()))

    def test_choose_run_come_back_and_remember(self):
        display = start_xvfb(self)
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write(SETTINGS.replace('width="320" height="240"', 'width="400" height="300"') % "")
        # Two earlier rows of the scores file; the newest is shown first.
        with open(inst.path("Ardentium_Scores.csv"), "wb") as f:
            f.write(b"Test name,Renderer,Driver,GPU clock(MHz)\nFurry VXA GL2,\"Mesa, llvmpipe\",1,0.00\n"
                    b"Furry VXA GL3,llvmpipe,1,0.00\n")
        proc = self.launcher(inst, display)
        state = read_state(self.state_path)
        self.assertEqual((state["scores_rows"], state["scores_first_row"]), ("2", "Furry VXA GL3"))
        self.screenshot(proc, "launcher-tests")

        # The OpenGL 3 fur test, then a three-second limit on the settings tab.
        self.click(proc, "test.2102")
        state = self.wait_state(proc, lambda s: s["test3d"] == "2102", "the chosen test")
        self.assertEqual(state["test_name"], "Furry VXA GL3")
        self.assertEqual(state["api3d"], "3")
        self.click(proc, "tab.settings")
        self.wait_state(proc, lambda s: s["tab"] == "settings", "the settings tab")
        self.type_into(proc, "max_time", "3000")
        self.wait_state(proc, lambda s: s["max_time"] == "3000", "the new time limit")
        # The keyboard alone: Tab goes from the width to the height field.
        self.type_into(proc, "width", "320", enter=False)
        self.xdo("key", "Tab")
        time.sleep(0.3)
        self.xdo("type", "--delay", "60", "240")
        self.xdo("key", "Return")
        self.wait_state(proc, lambda s: (s["width"], s["height"]) == ("320", "240"), "the size typed")
        self.screenshot(proc, "launcher-settings")
        for tab in ("gpu", "scores", "about"):
            self.click(proc, "tab." + tab)
            self.wait_state(proc, lambda s: s["tab"] == tab, "the %s tab" % tab)
            self.screenshot(proc, "launcher-" + tab)

        # Start: the launcher hides, the run ends by itself, the launcher
        # comes back with the score dialog.
        self.click(proc, "start")
        self.wait_title(display, inst, proc, r"^Ardentium|.*Furry VXA GL3", timeout=120)
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the end of the run",
                                timeout=180)
        self.assertEqual(state["error"], "")
        self.assertEqual(state["score_dialog"], "1")
        self.assertEqual(state["score.Test"], "Furry VXA GL3")
        self.assertEqual(state["score.API"], "OpenGL 3")
        self.assertEqual(state["score.Resolution"], "320x240 windowed")
        frames = int(state["score.Frames"])
        self.assertGreater(frames, 0)
        self.assertEqual(state["score.Score"], str(frames))  # a fur benchmark scores its frames
        self.assertRegex(state["score.FPS min/avg/max"], r"^\d+ / \d+ / \d+$")
        self.assertEqual(state["label.score.submit"], "Submit score: set the submission address in Settings")
        msgs = inst.messages_so_far()
        self.assertIn("Launcher: starting Furry VXA GL3 (OpenGL 3).", msgs)
        self.screenshot(proc, "score-dialog")

        self.click(proc, "score.save_json")
        state = self.wait_state(proc, lambda s: s.get("score.save", "").startswith("Saved to"), "the saved JSON")
        with open(inst.path("Ardentium_Score.json")) as f:
            saved = json.load(f)
        self.assertEqual(saved["frames"], frames)
        self.click(proc, "score.save_csv")
        self.wait_state(proc, lambda s: s.get("score.save", "").endswith(".csv"), "the saved CSV")
        with open(inst.path("Ardentium_Score.csv")) as f:
            header, row = f.read().splitlines()
        self.assertEqual(dict(zip(header.split(","), row.split(",")))["frames"], str(frames))
        self.click(proc, "score.copy")
        self.wait_state(proc, lambda s: s.get("score.copy") == "Copied.", "the copied score")
        self.click(proc, "score.close")
        self.wait_state(proc, lambda s: s["score_dialog"] == "0", "the closed score dialog")

        self.click(proc, "quit")
        self.assertEqual(self.wait_exit(inst, proc), 0)
        attrs = self.settings_attributes(inst)
        self.assertEqual(attrs["launcher_test3d"], "2102")
        self.assertEqual(attrs["api3d"], "3")
        self.assertEqual(attrs["max_time"], "3000")
        self.assertEqual(attrs["width"], "320")

        # The next start shows the same choice.
        proc = self.launcher(inst, display)
        state = read_state(self.state_path)
        self.assertEqual((state["test3d"], state["test_name"], state["max_time"]), ("2102", "Furry VXA GL3", "3000"))
        proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, proc), 0)
        self.assertIn("Launcher closed.", inst.messages())

    def window_geometry(self, wid):
        out = self.xdo("getwindowgeometry", "--shell", wid)
        return dict(line.split("=", 1) for line in out.split() if "=" in line)

    def test_fullscreen_runs_switch_only_to_the_displays_modes(self):
        display = start_xvfb(self)  # one mode: 1024x768
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write(SETTINGS.replace('max_time="60000"', 'max_time="3000"') % 'fullscreen="1" ')
        proc = self.launcher(inst, display)
        state = read_state(self.state_path)
        self.assertEqual(state["fullscreen"], "1")
        before = self.window_geometry(self.wid)
        screen = self.xdo("getdisplaygeometry").split()

        # 320x240 is not a mode of this display: refused, not drawn at
        # whatever size the display offers instead.
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the refused run")
        self.assertEqual(state["score_dialog"], "0")
        self.assertIn("Could not switch to fullscreen mode.", state["error"])
        self.click(proc, "error.ok")
        self.wait_state(proc, lambda s: s["error_dialog"] == "0", "the closed error box")

        # The display's own mode: a real fullscreen run, then the launcher
        # as it was, on a desktop as it was.
        self.click(proc, "tab.settings")
        self.wait_state(proc, lambda s: s["tab"] == "settings", "the settings tab")
        self.type_into(proc, "width", "1024")
        self.type_into(proc, "height", "768")
        self.wait_state(proc, lambda s: (s["width"], s["height"]) == ("1024", "768"), "the display's size")
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "2" and s["running"] == "0", "the fullscreen run",
                                timeout=180)
        self.assertEqual(state["error"], "")
        self.assertEqual(state["score_dialog"], "1")
        self.assertEqual(state["score.Resolution"], "1024x768 fullscreen")
        self.assertGreater(int(state["score.Frames"]), 0)
        self.assertEqual(self.xdo("getdisplaygeometry").split(), screen)
        after = self.window_geometry(self.wid)
        self.assertEqual((after["WIDTH"], after["HEIGHT"]), (before["WIDTH"], before["HEIGHT"]))
        self.screenshot(proc, "score-dialog-after-fullscreen")
        # It still takes the pointer: the dialog closes, the program quits.
        self.click(proc, "score.close")
        self.wait_state(proc, lambda s: s["score_dialog"] == "0", "the closed score dialog")
        self.click(proc, "quit")
        self.assertEqual(self.wait_exit(inst, proc), 2)  # the refused run is the session's worst outcome
        self.assertEqual(self.settings_attributes(inst)["fullscreen"], "1")
        self.assertIn("Could not switch to fullscreen mode. Please try another resolution.", inst.messages())

    def run_to_score_dialog(self, inst, proc):
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the end of the run",
                                timeout=180)
        self.assertEqual(state["error"], "")
        self.assertEqual(state["score_dialog"], "1")
        return state

    def test_score_submission_and_status_post(self):
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Recorder)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        Recorder.received = []
        url = "http://127.0.0.1:%d/scores" % server.server_address[1]
        display = start_xvfb(self)
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write(SETTINGS.replace('max_time="60000"', 'max_time="3000"') %
                    ('submit_score_user_email="tester@example.org" score_submit_url="%s" ' % url))
        proc = self.launcher(inst, display)
        state = self.run_to_score_dialog(inst, proc)
        self.assertEqual(state["label.score.submit"], "Submit score")
        frames = int(state["score.Frames"])

        # A slow server: the dialog keeps answering the pointer meanwhile.
        Recorder.status, Recorder.delay = 200, 4.0
        self.click(proc, "score.submit")
        state = self.wait_state(proc, lambda s: s["score.submit"].startswith("Sending to " + url), "the sending")
        self.xdo("mousemove", "--window", self.wid, "5", "5")
        self.wait_state(proc, lambda s: s["pointer"].startswith("5,5,"), "the pointer moved while sending",
                        timeout=3)
        state = self.wait_state(proc, lambda s: "done" in s["score.submit"], "the submission's end")
        self.assertEqual(state["score.submit"], "Score submission done: the server answered HTTP 200.")
        path, ctype, body = Recorder.received[-1]
        self.assertEqual((path, ctype), ("/scores", "application/json"))
        sent = json.loads(body)
        self.assertEqual((sent["kind"], sent["user_email"]), ("score", "tester@example.org"))
        self.assertEqual(sent["result"]["frames"], frames)

        # A server error and its reason.
        Recorder.status, Recorder.delay = 500, 0.0
        self.click(proc, "score.post")
        state = self.wait_state(proc, lambda s: "failed" in s["score.post"], "the failed status post")
        self.assertEqual(state["score.post"],
                         "Status post failed: the server answered HTTP 500 (database is down).")
        self.assertIn("Furry VXA GL2", json.loads(Recorder.received[-1][2])["status"])

        # Nobody listening any more.
        server.shutdown()
        server.server_close()
        self.click(proc, "score.submit")
        state = self.wait_state(proc, lambda s: "failed" in s["score.submit"], "the refused submission")
        self.assertRegex(state["score.submit"], r"^Score submission failed: .*(onnect|refused)")
        msgs = inst.messages_so_far()
        self.assertIn("Score submission done: the server answered HTTP 200.", msgs)
        self.assertIn("Status post failed: the server answered HTTP 500 (database is down).", msgs)
        self.assertIn(state["score.submit"], msgs)
        self.screenshot(proc, "score-dialog-submissions")
        # Escape closes the dialog; a stop signal closes the launcher.
        self.xdo("key", "Escape")
        self.wait_state(proc, lambda s: s["score_dialog"] == "0", "the dialog closed by Escape")
        proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, proc), 0)

    def test_a_run_that_cannot_start_returns_with_its_reason(self):
        # An OpenGL 3.0 driver: enough for the launcher, too old for the
        # OpenGL 3 fur test's context.
        display = start_xvfb(self)
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write(SETTINGS.replace('launcher_test3d="2003"', 'launcher_test3d="2102"') % "")
        proc = self.launcher(inst, display, env={"MESA_GL_VERSION_OVERRIDE": "3.0"})
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the end of the run")
        # The box quotes the event log's reason, not only where the log is.
        error = state["error"].split("\\n")
        self.assertEqual(error[0], "Furry VXA GL3 could not start:")
        self.assertIn("OpenGL 3 window creation failed!", error)
        self.assertTrue(any("context" in line for line in error[1:-1]), error)
        self.assertEqual(error[-1], "(ardentium_log.txt has every step.)")
        self.assertEqual(state["error_dialog"], "1")
        self.assertEqual(state["score_dialog"], "0")
        self.screenshot(proc, "launcher-run-failed")
        # The error box closes with its button and the launcher goes on.
        self.click(proc, "error.ok")
        self.wait_state(proc, lambda s: s["error_dialog"] == "0", "the closed error box")
        self.click(proc, "quit")
        # The session's worst outcome is its exit code.
        self.assertEqual(self.wait_exit(inst, proc), 2)
        self.assertIn("OpenGL 3 window creation failed!", inst.messages())

    def test_gpu_tab_shows_the_monitor_threads_readings(self):
        # A fake NVIDIA board whose temperature climbs a degree a reading.
        display = start_xvfb(self)
        inst = self.install()
        script = os.path.join(inst.root, "nvml.txt")
        with open(script, "w") as f:
            f.write("gpus=1\ndriver=550.54.14\ngpu0.name=NVIDIA GeForce RTX 4090\ngpu0.device=2684\n"
                    "gpu0.bus=00000000:41:00.0\ngpu0.temp=60\ngpu0.temp_step=1\ngpu0.util=99\ngpu0.fan=30\n"
                    "gpu0.clock=2520\ngpu0.memclock=10501\ngpu0.power_mw=300000\ngpu0.limit_mw=450000\n")
        env = {"ARDENTIUM_FAKE_NVML_SCRIPT": script,
               "ARDENTIUM_NVML_LIBRARY": os.path.join(os.path.abspath(BUILD), "monitor-fakes", "libnvidia-ml.so.1")}
        proc = self.launcher(inst, display, env=env)
        self.click(proc, "tab.gpu")
        nvidia = [k[:-len("name")] for k, v in read_state(self.state_path).items()
                  if k.startswith("gpu.") and k.endswith(".name") and v == "NVIDIA GeForce RTX 4090"]
        self.assertEqual(len(nvidia), 1, read_state(self.state_path))
        gpu = nvidia[0]
        # Live: the readings move and the history grows while the tab is up.
        first = self.wait_state(proc, lambda s: s[gpu + "temperature"] != "n.a.", "a temperature")
        later = self.wait_state(proc, lambda s: int(s[gpu + "history_samples"]) >= 3 and
                                s[gpu + "temperature"] != first[gpu + "temperature"], "a newer temperature")
        self.assertRegex(later[gpu + "temperature"], r"^\d+ C$")
        self.assertEqual(later[gpu + "core_clock"], "2520 MHz")
        self.assertIn("widget.gpu.graph." + str(int(gpu.split(".")[1]) - 1), later)
        self.screenshot(proc, "launcher-gpu-fake-nvidia")
        proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, proc), 0)

    def test_text_follows_the_displays_dpi(self):
        # A display of twice the usual density: the launcher's text and
        # widgets grow with it.
        r, w = os.pipe()
        xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(w), "-screen", "0", "2048x1536x24", "-dpi", "192",
                                 "-nolisten", "tcp"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                pass_fds=(w,))
        os.close(w)
        with os.fdopen(r) as f:
            display = ":" + f.readline().strip()
        self.addCleanup(lambda: (xvfb.terminate(), xvfb.wait(timeout=10)))
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write(SETTINGS % 'log_score="1" ')
        proc = self.launcher(inst, display)
        state = read_state(self.state_path)
        self.assertEqual(state["text_scale"], "2.00")
        x, y, w, h = (int(v) for v in state["widget.start"].split(","))
        self.assertGreaterEqual(h, 40)  # 22 pixels at 96 DPI
        self.screenshot(proc, "launcher-192dpi")
        proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, proc), 0)
        # No run, no scores row, even with scores logged.
        self.assertFalse(os.path.exists(inst.path("Ardentium_Scores.csv")))

    def test_no_display_names_the_direct_start(self):
        inst = self.install()
        r = inst.run("/display_gui=1", timeout=60)
        self.assertEqual(r.returncode, 2)  # could not start
        self.assertIn("/display_gui=0", r.stderr)
        self.assertTrue(any("/display_gui=0" in m for m in inst.messages()))
        self.assertFalse(os.path.exists(inst.path("startup_options.xml")))


if __name__ == "__main__":
    unittest.main()
