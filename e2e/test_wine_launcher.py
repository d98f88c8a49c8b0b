"""The Windows launcher under Wine: the Win32 window with its GUI, a fur test
chosen, started and returned from, the score dialog, the settings file."""
import http.server
import os
import re
import threading
import json
import shutil
import subprocess
import time
import unittest

from ardtest import read_png, start_xvfb
from test_launcher import Recorder, read_state
from test_wine import WINE_RUN, WineInstall

SHOTS = os.environ.get("ARDENTIUM_SHOTS", "")


def windows_path(path):
    return "Z:" + path.replace("/", "\\")


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class WineLauncher(unittest.TestCase):
    WAIT = 180

    def log_tail(self):
        try:
            with open(os.path.join(os.path.dirname(self.state_path), "ardentium_log.txt"), "rb") as f:
                return f.read().decode("latin-1")[-3000:]
        except OSError:
            return "(no event log)"

    def wait_state(self, proc, predicate, what, timeout=WAIT):
        deadline = time.time() + timeout
        while True:
            state = read_state(self.state_path)
            if state and predicate(state):
                return state
            shown = {k: v for k, v in state.items() if not k.startswith("widget.")}
            if proc.poll() is not None:
                self.fail("the launcher ended (%s) before it showed %s; state: %r\n--- event log (end):\n%s" %
                          (proc.returncode, what, shown, self.log_tail()))
            if time.time() > deadline:
                self.fail("the launcher did not show %s within %d s; state: %r\n--- event log (end):\n%s" %
                          (what, timeout, shown, self.log_tail()))
            time.sleep(0.3)

    def xdo(self, *args):
        subprocess.run(["xdotool", *args], env=dict(os.environ, DISPLAY=self.display), check=True, timeout=30)

    def click(self, proc, widget):
        key = "widget." + widget
        seen = None
        while True:
            state = self.wait_state(proc, lambda s: key in s, "the widget " + widget)
            if state[key] == seen:
                break
            seen = state[key]
            time.sleep(0.5)
        x, y, w, h = (int(v) for v in seen.split(","))
        ox, oy = (int(v) for v in state["client_origin"].split(","))
        self.xdo("mousemove", str(ox + x + w // 2), str(oy + y + h // 2))
        time.sleep(0.3)
        self.xdo("mousedown", "1")
        time.sleep(0.2)
        self.xdo("mouseup", "1")

    def screenshot(self, proc, inst, name):
        target = os.path.join(inst.root, name + ".png")
        with open(self.state_path + ".shot.tmp", "w") as f:
            f.write(windows_path(target))
        os.replace(self.state_path + ".shot.tmp", self.state_path + ".shot")
        deadline = time.time() + 60
        while os.path.exists(self.state_path + ".shot") and time.time() < deadline:
            time.sleep(0.3)
        self.assertTrue(os.path.exists(target), "no screenshot " + name)
        _, _, rows = read_png(target)
        self.assertGreater(len({px for row in rows[::8] for px in row[::8]}), 3, name)
        if SHOTS:
            os.makedirs(SHOTS, exist_ok=True)
            shutil.copy2(target, os.path.join(SHOTS, name + ".png"))

    def test_choose_run_and_come_back(self):
        self.display = start_xvfb(self)
        inst = WineInstall()
        self.addCleanup(shutil.rmtree, inst.root, True)
        # A score server on the loopback address, for WinHTTP.
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Recorder)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        Recorder.received, Recorder.status, Recorder.delay = [], 200, 0.0
        url = "http://127.0.0.1:%d/scores" % server.server_address[1]
        with open(os.path.join(inst.program_dir, "startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings width="320" height="240" max_time="2000"'
                    ' enable_amark_music="0" launcher_test3d="2102" score_submit_url="%s" />\n</ardentium>\n' % url)
        self.state_path = os.path.join(inst.work_dir, "state.txt")
        env = dict(os.environ, DISPLAY=self.display, WINEDLLOVERRIDES="winedbg.exe=d")
        proc = subprocess.Popen([WINE_RUN, os.path.join(inst.program_dir, "ardentium.exe"), "/launcher_state=state.txt"],
                                cwd=inst.work_dir, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.addCleanup(proc.stderr.close)
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        self.wait_state(proc, lambda s: s.get("tab") == "tests", "the tests tab")
        self.screenshot(proc, inst, "wine-launcher-tests")

        # The OpenGL 2 fur test through WGL. (A Direct3D 11 run started from
        # the launcher under Wine now and then never draws its first frame;
        # that is open, and the Direct3D tests start their runs directly.)
        self.click(proc, "test.2003")
        state = self.wait_state(proc, lambda s: s["test3d"] == "2003", "the chosen test")
        self.assertEqual(state["test_available"], "1")
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the end of the run")
        self.assertEqual(state["error"], "")
        self.assertEqual(state["score_dialog"], "1")
        self.assertEqual(state["score.Test"], "Furry VXA GL2")
        self.assertEqual(state["score.API"], "OpenGL 2")
        self.assertGreater(int(state["score.Frames"]), 0)
        self.screenshot(proc, inst, "wine-score-dialog")
        self.click(proc, "score.submit")
        state = self.wait_state(proc, lambda s: "done" in s["score.submit"] or "failed" in s["score.submit"],
                                "the submission's end")
        self.assertEqual(state["score.submit"], "Score submission done: the server answered HTTP 200.")
        sent = json.loads(Recorder.received[-1][2])
        self.assertEqual(sent["result"]["frames"], int(state["score.Frames"]))
        Recorder.status = 500
        self.click(proc, "score.post")
        state = self.wait_state(proc, lambda s: "failed" in s["score.post"], "the failed status post")
        self.assertEqual(state["score.post"], "Status post failed: the server answered HTTP 500 (database is down).")
        server.shutdown()
        server.server_close()
        self.click(proc, "score.submit")
        state = self.wait_state(proc, lambda s: "failed" in s["score.submit"], "the refused submission")
        self.assertEqual(state["score.submit"], "Score submission failed: could not connect to the server.")
        self.screenshot(proc, inst, "wine-score-dialog-submissions")
        self.click(proc, "score.close")
        self.wait_state(proc, lambda s: s["score_dialog"] == "0", "the closed score dialog")
        self.click(proc, "quit")
        proc.wait(timeout=120)
        self.assertEqual(proc.returncode, 0, proc.stderr.read().decode("latin-1", "replace")[-2000:])
        with open(os.path.join(inst.program_dir, "startup_options.xml"), encoding="latin-1") as f:
            attrs = dict(re.findall(r'(\w+)="([^"]*)"', f.read()))
        self.assertEqual(attrs["launcher_test3d"], "2003")  # the file started with 2102


if __name__ == "__main__":
    unittest.main()
