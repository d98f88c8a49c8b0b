"""The Windows launcher under Wine: the Win32 window with its GUI, a fur test
chosen, started and returned from, the score dialog, the settings file."""
import http.server
import os
import re
import threading
import time
import json
import shutil
import subprocess
import unittest

from ardtest import LauncherDriver, start_xvfb
from test_launcher import Recorder
from test_wine import WINE_RUN, WineInstall


def windows_path(path):
    return "Z:" + path.replace("/", "\\")


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class WineLauncher(unittest.TestCase, LauncherDriver):
    settle = 0.5

    def program_path(self, path):
        return windows_path(path)

    def launcher_failed(self, proc, message):
        try:
            with open(os.path.join(os.path.dirname(self.state_path), "ardentium_log.txt"), "rb") as f:
                tail = f.read().decode("latin-1")[-3000:]
        except OSError:
            tail = "(no event log)"
        self.fail("%s\n--- event log (end):\n%s" % (message, tail))

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
        self.shot_folder = inst.root
        env = dict(os.environ, DISPLAY=self.display, WINEDLLOVERRIDES="winedbg.exe=d")
        proc = subprocess.Popen([WINE_RUN, os.path.join(inst.program_dir, "ardentium.exe"), "/launcher_state=state.txt"],
                                cwd=inst.work_dir, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.addCleanup(proc.stderr.close)
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        self.wait_state(proc, lambda s: s.get("tab") == "tests", "the tests tab")
        self.screenshot(proc, "wine-launcher-tests")

        # The Direct3D 11 fur test, beside the launcher's own OpenGL window.
        self.click(proc, "test.2015")
        state = self.wait_state(proc, lambda s: s["test3d"] == "2015", "the chosen test")
        self.assertEqual(state["test_available"], "1")
        self.click(proc, "start")
        state = self.wait_state(proc, lambda s: s["runs"] == "1" and s["running"] == "0", "the end of the run")
        self.assertEqual(state["error"], "")
        self.assertEqual(state["score_dialog"], "1")
        self.assertEqual(state["score.Test"], "Furry VXA D3D11")
        self.assertEqual(state["score.API"], "Direct3D 11")
        self.assertGreater(int(state["score.Frames"]), 0)
        self.screenshot(proc, "wine-score-dialog")
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
        self.screenshot(proc, "wine-score-dialog-submissions")

        # A server on the same address that keeps the program waiting: the
        # dialog closes and the program quits without waiting for it.
        Recorder.status, Recorder.delay = 200, 90.0
        slow = http.server.ThreadingHTTPServer(("127.0.0.1", server.server_address[1]), Recorder)
        slow.block_on_close = False
        threading.Thread(target=slow.serve_forever, daemon=True).start()
        self.addCleanup(slow.server_close)
        self.addCleanup(slow.shutdown)
        self.click(proc, "score.submit")
        self.wait_state(proc, lambda s: s["score.submit"].startswith("Sending to "), "the slow submission")
        self.click(proc, "score.close")
        self.wait_state(proc, lambda s: s["score_dialog"] == "0", "the closed score dialog")
        self.click(proc, "quit")
        quit_at = time.monotonic()
        proc.wait(timeout=120)
        self.assertLess(time.monotonic() - quit_at, 45, "the quit waited for the slow server")
        self.assertEqual(proc.returncode, 0, proc.stderr.read().decode("latin-1", "replace")[-2000:])
        with open(os.path.join(inst.program_dir, "startup_options.xml"), encoding="latin-1") as f:
            attrs = dict(re.findall(r'(\w+)="([^"]*)"', f.read()))
        self.assertEqual(attrs["launcher_test3d"], "2015")  # the file started with 2102


if __name__ == "__main__":
    unittest.main()
